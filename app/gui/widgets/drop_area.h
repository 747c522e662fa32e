#pragma once

#include <QFrame>
#include <QStringList>
#include <functional>

class QLabel;
class QPushButton;
class QMimeData;
class QHBoxLayout;

namespace norvane::gui {

// A framed area that takes files and folders dragged from the file manager.
// Only local paths are accepted; the area highlights itself while a drag that
// carries at least one of them hovers over it. An optional button inside the
// area opens the screen's own file picker (see browseRequested).
class DropArea : public QFrame {
    Q_OBJECT
    Q_PROPERTY(bool dropTargeted READ isDropTargeted NOTIFY dropTargetedChanged)

  public:
    explicit DropArea(const QString& title, const QString& subtitle = {},
                      QWidget* parent = nullptr);

    // Adds a button below the texts that emits browseRequested().
    QPushButton* addBrowseButton(const QString& text);
    // Adds another button to the same row (the caller connects it).
    QPushButton* addButton(const QString& text);

    void setTitle(const QString& title);
    void setSubtitle(const QString& subtitle);
    QString title() const;
    QString subtitle() const;
    bool isDropTargeted() const { return dropTargeted_; }

    // The local paths carried by a drag, in their order (empty: nothing for us).
    static QStringList localPaths(const QMimeData* mime);

  signals:
    void pathsDropped(const QStringList& paths);
    void browseRequested();
    void dropTargetedChanged(bool targeted);

  protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;

  private:
    void setDropTargeted(bool targeted);

    QLabel* title_;
    QLabel* subtitle_;
    QHBoxLayout* buttonRow_ = nullptr;
    bool dropTargeted_ = false;
};

// Lets `target` (a list or table beside a drop area) take the same drops:
// local paths dropped on it are passed to `onDrop`.
void forwardDrops(QWidget* target, std::function<void(const QStringList&)> onDrop);

}  // namespace norvane::gui
