#pragma once

#include <QObject>
#include <QStringList>
#include <QVariant>
#include <functional>

class QCheckBox;
class QComboBox;
class QLineEdit;
class QSpinBox;

namespace norvane::gui {

class PathField;

// Calls `onChange` (and once at once) whenever the published property `name`
// of `source` announces a change; the connection lives as long as `context`.
void watchProperty(QObject* source, const char* name, QObject* context,
                   std::function<void()> onChange);

// Two-way bindings between a control and a published property: the control
// shows the property and follows its change signal; a user edit writes the
// property. Combo boxes hold labels (filled with `labels`).
void bindComboBox(QComboBox* box, QObject* source, const char* name, const QStringList& labels);
void bindCheckBox(QCheckBox* box, QObject* source, const char* name);
void bindSpinBox(QSpinBox* box, QObject* source, const char* name);
void bindLineEdit(QLineEdit* edit, QObject* source, const char* name);
void bindPathField(PathField* field, QObject* source, const char* name);

}  // namespace norvane::gui
