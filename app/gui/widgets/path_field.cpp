#include "app/gui/widgets/path_field.h"

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QMimeData>
#include <QPushButton>

#include "app/gui/ui_hooks.h"
#include "app/gui/widgets/drop_area.h"

namespace norvane::gui {

PathField::PathField(Kind kind, const QString& dialogTitle, QWidget* parent)
    : QWidget(parent),
      kind_(kind),
      dialogTitle_(dialogTitle),
      edit_(new QLineEdit(this)),
      choose_(new QPushButton("Choose…", this)) {
    setAcceptDrops(true);
    edit_->setAcceptDrops(false);
    edit_->installEventFilter(this);
    edit_->setClearButtonEnabled(false);
    choose_->setAccessibleName(dialogTitle);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(edit_, 1);
    layout->addWidget(choose_);
    setFocusProxy(edit_);
    connect(choose_, &QPushButton::clicked, this, &PathField::choose);
    connect(edit_, &QLineEdit::editingFinished, this, [this] {
        if (edit_->isModified()) {
            edit_->setModified(false);
            emit pathChosen(edit_->text().trimmed());
        }
    });
}

void PathField::setExtensions(const QStringList& extensions, const QString& dialogFilter) {
    extensions_ = extensions;
    dialogFilter_ = dialogFilter;
}

void PathField::setPath(const QString& path) {
    edit_->setText(path);
    edit_->setModified(false);
    edit_->setToolTip(path);
}

QString PathField::path() const {
    return edit_->text().trimmed();
}

void PathField::setPlaceholderText(const QString& text) {
    edit_->setPlaceholderText(text);
}

bool PathField::accepts(const QString& path) const {
    const QFileInfo info(path);
    if (kind_ == Kind::folder) {
        return info.isDir();
    }
    if (info.isDir()) {
        return false;
    }
    return extensions_.isEmpty() || extensions_.contains(info.suffix().toLower());
}

void PathField::choose() {
    const QString start = path().isEmpty() ? lastBrowseFolder() : path();
    QString chosen;
    if (kind_ == Kind::folder) {
        chosen = uiHooks().chooseFolder(this, dialogTitle_, start);
    } else {
        chosen = uiHooks().chooseFile(
            this, dialogTitle_, QFileInfo(start).isDir() ? start : QFileInfo(start).absolutePath(),
            dialogFilter_);
    }
    if (chosen.isEmpty()) {
        return;
    }
    rememberBrowseFolder(chosen);
    setPath(chosen);
    emit pathChosen(chosen);
}

void PathField::dragEnterEvent(QDragEnterEvent* event) {
    const QStringList paths = DropArea::localPaths(event->mimeData());
    if (paths.size() == 1 && accepts(paths.front())) {
        event->acceptProposedAction();
    } else {
        event->ignore();
    }
}

void PathField::dropEvent(QDropEvent* event) {
    const QStringList paths = DropArea::localPaths(event->mimeData());
    if (paths.size() != 1 || !accepts(paths.front())) {
        event->ignore();
        return;
    }
    event->acceptProposedAction();
    setPath(paths.front());
    emit pathChosen(paths.front());
}

bool PathField::eventFilter(QObject* watched, QEvent* event) {
    // Drops on the line edit count as drops on the field.
    if (watched == edit_ && event->type() == QEvent::DragEnter) {
        dragEnterEvent(static_cast<QDragEnterEvent*>(event));
        return true;
    }
    if (watched == edit_ && event->type() == QEvent::Drop) {
        dropEvent(static_cast<QDropEvent*>(event));
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

}  // namespace norvane::gui
