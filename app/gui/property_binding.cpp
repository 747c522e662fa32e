#include "app/gui/property_binding.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QMetaProperty>
#include <QSignalBlocker>
#include <QSpinBox>

#include "app/gui/widgets/path_field.h"

namespace norvane::gui {

namespace {

// Receives a property's notify signal (connected by meta-method, as the
// signal is only known by name) and forwards it to a function.
class PropertyWatcher : public QObject {
    Q_OBJECT
  public:
    PropertyWatcher(std::function<void()> onChange, QObject* parent)
        : QObject(parent), onChange_(std::move(onChange)) {}
  public slots:
    void changed() { onChange_(); }

  private:
    std::function<void()> onChange_;
};

}  // namespace

void watchProperty(QObject* source, const char* name, QObject* context,
                   std::function<void()> onChange) {
    const QMetaObject* meta = source->metaObject();
    const int index = meta->indexOfProperty(name);
    Q_ASSERT_X(index >= 0, "watchProperty", name);
    if (index < 0) {
        return;
    }
    auto* watcher = new PropertyWatcher(std::move(onChange), context);
    const QMetaProperty property = meta->property(index);
    if (property.hasNotifySignal()) {
        const QMetaMethod slot =
            watcher->metaObject()->method(watcher->metaObject()->indexOfSlot("changed()"));
        QObject::connect(source, property.notifySignal(), watcher, slot);
    }
    watcher->changed();
}

void bindComboBox(QComboBox* box, QObject* source, const char* name, const QStringList& labels) {
    box->clear();
    box->addItems(labels);
    watchProperty(source, name, box, [box, source, name] {
        const QSignalBlocker blocker(box);
        box->setCurrentIndex(box->findText(source->property(name).toString()));
    });
    QObject::connect(box, &QComboBox::textActivated, source,
                     [source, name](const QString& text) { source->setProperty(name, text); });
}

void bindCheckBox(QCheckBox* box, QObject* source, const char* name) {
    watchProperty(source, name, box, [box, source, name] {
        const QSignalBlocker blocker(box);
        box->setChecked(source->property(name).toBool());
    });
    QObject::connect(box, &QCheckBox::toggled, source,
                     [source, name](bool checked) { source->setProperty(name, checked); });
}

void bindSpinBox(QSpinBox* box, QObject* source, const char* name) {
    watchProperty(source, name, box, [box, source, name] {
        const QSignalBlocker blocker(box);
        box->setValue(source->property(name).toInt());
    });
    QObject::connect(box, &QSpinBox::valueChanged, source,
                     [source, name](int value) { source->setProperty(name, value); });
}

void bindLineEdit(QLineEdit* edit, QObject* source, const char* name) {
    watchProperty(source, name, edit, [edit, source, name] {
        const QString value = source->property(name).toString();
        if (edit->text() != value) {
            const QSignalBlocker blocker(edit);
            edit->setText(value);
        }
    });
    QObject::connect(edit, &QLineEdit::textEdited, source,
                     [source, name](const QString& text) { source->setProperty(name, text); });
}

void bindPathField(PathField* field, QObject* source, const char* name) {
    watchProperty(source, name, field,
                  [field, source, name] { field->setPath(source->property(name).toString()); });
    QObject::connect(field, &PathField::pathChosen, source,
                     [source, name](const QString& path) { source->setProperty(name, path); });
}

}  // namespace norvane::gui

#include "property_binding.moc"
