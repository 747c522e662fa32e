#pragma once

#include <QStringList>
#include <QWidget>

class QLineEdit;
class QPushButton;

namespace norvane::gui {

// A location the user types, picks or drops: a line edit with a "Choose…"
// button. In folder mode it takes a dropped folder; in file mode a dropped
// file whose extension is one of `extensions` (lower case, without the dot;
// empty: any). pathChosen is emitted when the user picks, drops or finishes
// typing a path (not when setPath is called).
class PathField : public QWidget {
    Q_OBJECT

  public:
    enum class Kind { file, folder };

    PathField(Kind kind, const QString& dialogTitle, QWidget* parent = nullptr);

    void setExtensions(const QStringList& extensions, const QString& dialogFilter = {});
    void setPath(const QString& path);
    QString path() const;
    void setPlaceholderText(const QString& text);

    QLineEdit* lineEdit() const { return edit_; }
    QPushButton* chooseButton() const { return choose_; }
    // Whether a dropped path is taken by this field.
    bool accepts(const QString& path) const;
    // The picker through the UI hooks (what the "Choose…" button does).
    void choose();

  signals:
    void pathChosen(const QString& path);

  protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    Kind kind_;
    QString dialogTitle_;
    QStringList extensions_;
    QString dialogFilter_;
    QLineEdit* edit_;
    QPushButton* choose_;
};

}  // namespace norvane::gui
