#pragma once

#include <QWidget>

class QFormLayout;
class QLabel;
class QPushButton;

namespace norvane {
class SettingsViewModel;
}

namespace norvane::gui {

// Every persisted default of the three tools, edited in place (each change
// is saved at once), with "Reset to System Defaults".
class SettingsScreen : public QWidget {
    Q_OBJECT

  public:
    explicit SettingsScreen(SettingsViewModel& settings, QWidget* parent = nullptr);

    // The control bound to a setting, by its property name.
    QWidget* editorFor(const QString& propertyName) const;
    QPushButton* resetButton() const { return reset_; }

  private:
    void addRow(QFormLayout* form, const QString& label, const char* property, QWidget* editor,
                const QString& help = {});
    void resetToDefaults();

    SettingsViewModel& settings_;
    QPushButton* reset_;
    QLabel* writeError_;
};

}  // namespace norvane::gui
