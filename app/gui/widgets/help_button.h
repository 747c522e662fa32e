#pragma once

#include <QToolButton>

namespace norvane::gui {

// A small "?" button that explains the control beside it in a popover.
class HelpButton : public QToolButton {
    Q_OBJECT

  public:
    explicit HelpButton(const QString& helpText, QWidget* parent = nullptr);
    const QString& helpText() const { return helpText_; }
    // The popover while it is shown (nullptr otherwise).
    QWidget* popover() const { return popover_; }

  private:
    void showPopover();
    QString helpText_;
    QWidget* popover_ = nullptr;
};

}  // namespace norvane::gui
