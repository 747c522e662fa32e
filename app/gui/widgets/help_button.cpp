#include "app/gui/widgets/help_button.h"

#include <QFrame>
#include <QLabel>
#include <QPointer>
#include <QVBoxLayout>

namespace norvane::gui {

HelpButton::HelpButton(const QString& helpText, QWidget* parent)
    : QToolButton(parent), helpText_(helpText) {
    setObjectName("helpButton");
    setText("?");
    setToolTip(helpText);
    setAccessibleName("Help");
    setAccessibleDescription(helpText);
    setAutoRaise(true);
    connect(this, &QToolButton::clicked, this, &HelpButton::showPopover);
}

void HelpButton::showPopover() {
    auto* frame = new QFrame(this, Qt::Popup);
    frame->setObjectName("helpPopover");
    frame->setAttribute(Qt::WA_DeleteOnClose);
    frame->setFrameShape(QFrame::StyledPanel);
    auto* label = new QLabel(helpText_, frame);
    label->setWordWrap(true);
    label->setMaximumWidth(360);
    label->setMinimumWidth(240);
    auto* layout = new QVBoxLayout(frame);
    layout->setContentsMargins(10, 8, 10, 8);
    layout->addWidget(label);
    frame->adjustSize();
    frame->move(mapToGlobal(QPoint(0, height())));
    popover_ = frame;
    QPointer<HelpButton> self(this);
    connect(frame, &QObject::destroyed, this, [self] {
        if (self) {
            self->popover_ = nullptr;
        }
    });
    frame->show();
}

}  // namespace norvane::gui
