#include "app/gui/widgets/drop_area.h"

#include <QAbstractScrollArea>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QLabel>
#include <QMimeData>
#include <QPushButton>
#include <QStyle>
#include <QUrl>
#include <QVBoxLayout>

namespace norvane::gui {

DropArea::DropArea(const QString& title, const QString& subtitle, QWidget* parent)
    : QFrame(parent), title_(new QLabel(title, this)), subtitle_(new QLabel(subtitle, this)) {
    setObjectName("dropArea");
    setAcceptDrops(true);
    setFrameShape(QFrame::StyledPanel);
    setMinimumHeight(96);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);

    title_->setObjectName("dropAreaTitle");
    title_->setAlignment(Qt::AlignCenter);
    title_->setWordWrap(true);
    subtitle_->setObjectName("dropAreaSubtitle");
    subtitle_->setAlignment(Qt::AlignCenter);
    subtitle_->setWordWrap(true);
    subtitle_->setVisible(!subtitle.isEmpty());

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(16, 12, 16, 12);
    layout->setSpacing(4);
    layout->addStretch();
    layout->addWidget(title_);
    layout->addWidget(subtitle_);
    layout->addStretch();
}

QPushButton* DropArea::addBrowseButton(const QString& text) {
    QPushButton* button = addButton(text);
    button->setObjectName("dropAreaBrowse");
    connect(button, &QPushButton::clicked, this, &DropArea::browseRequested);
    return button;
}

QPushButton* DropArea::addButton(const QString& text) {
    if (buttonRow_ == nullptr) {
        buttonRow_ = new QHBoxLayout;
        buttonRow_->addStretch();
        buttonRow_->addStretch();
        auto* box = static_cast<QVBoxLayout*>(layout());
        box->insertLayout(box->count() - 1, buttonRow_);
    }
    auto* button = new QPushButton(text, this);
    buttonRow_->insertWidget(buttonRow_->count() - 1, button);
    return button;
}

void DropArea::setTitle(const QString& title) {
    title_->setText(title);
}

void DropArea::setSubtitle(const QString& subtitle) {
    subtitle_->setText(subtitle);
    subtitle_->setVisible(!subtitle.isEmpty());
}

QString DropArea::title() const {
    return title_->text();
}
QString DropArea::subtitle() const {
    return subtitle_->text();
}

QStringList DropArea::localPaths(const QMimeData* mime) {
    QStringList paths;
    if (mime == nullptr || !mime->hasUrls()) {
        return paths;
    }
    for (const QUrl& url : mime->urls()) {
        if (url.isLocalFile() && !url.toLocalFile().isEmpty()) {
            paths.append(url.toLocalFile());
        }
    }
    return paths;
}

void DropArea::dragEnterEvent(QDragEnterEvent* event) {
    if (localPaths(event->mimeData()).isEmpty()) {
        event->ignore();
        return;
    }
    event->acceptProposedAction();
    setDropTargeted(true);
}

void DropArea::dragMoveEvent(QDragMoveEvent* event) {
    if (localPaths(event->mimeData()).isEmpty()) {
        event->ignore();
        return;
    }
    event->acceptProposedAction();
}

void DropArea::dragLeaveEvent(QDragLeaveEvent* event) {
    setDropTargeted(false);
    event->accept();
}

void DropArea::dropEvent(QDropEvent* event) {
    setDropTargeted(false);
    const QStringList paths = localPaths(event->mimeData());
    if (paths.isEmpty()) {
        event->ignore();
        return;
    }
    event->acceptProposedAction();
    emit pathsDropped(paths);
}

void DropArea::setDropTargeted(bool targeted) {
    if (dropTargeted_ == targeted) {
        return;
    }
    dropTargeted_ = targeted;
    // The style sheet matches [dropTargeted="true"]; re-polish to apply it.
    style()->unpolish(this);
    style()->polish(this);
    update();
    emit dropTargetedChanged(targeted);
}

namespace {

class DropForwarder : public QObject {
  public:
    DropForwarder(std::function<void(const QStringList&)> onDrop, QObject* parent)
        : QObject(parent), onDrop_(std::move(onDrop)) {}

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        switch (event->type()) {
            case QEvent::DragEnter:
            case QEvent::DragMove: {
                auto* drag = static_cast<QDragMoveEvent*>(event);
                if (DropArea::localPaths(drag->mimeData()).isEmpty()) {
                    drag->ignore();
                } else {
                    drag->acceptProposedAction();
                }
                return true;
            }
            case QEvent::Drop: {
                auto* drop = static_cast<QDropEvent*>(event);
                const QStringList paths = DropArea::localPaths(drop->mimeData());
                if (paths.isEmpty()) {
                    drop->ignore();
                } else {
                    drop->acceptProposedAction();
                    onDrop_(paths);
                }
                return true;
            }
            default:
                return QObject::eventFilter(watched, event);
        }
    }

  private:
    std::function<void(const QStringList&)> onDrop_;
};

}  // namespace

void forwardDrops(QWidget* target, std::function<void(const QStringList&)> onDrop) {
    // Item views receive drags on their viewport.
    QWidget* receiver = target;
    if (auto* area = qobject_cast<QAbstractScrollArea*>(target)) {
        receiver = area->viewport();
    }
    receiver->setAcceptDrops(true);
    receiver->installEventFilter(new DropForwarder(std::move(onDrop), target));
}

}  // namespace norvane::gui
