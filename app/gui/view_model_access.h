#pragma once

#include <QVariant>
#include <QVariantList>
#include <QVariantMap>

namespace norvane::gui {

// View-model accessors hand out either references or pointers; screens take
// references.
template <class T>
T& deref(T& value) {
    return value;
}
template <class T>
T& deref(T* value) {
    return *value;
}

// Any published list (QVariantList, QStringList, QList<int>, ...) as variants.
inline QVariantList toVariantList(const QVariant& value) {
    if (value.canConvert<QVariantList>()) {
        return value.value<QVariantList>();
    }
    return {};
}

// Any published record or map (QVariantMap, QVariantHash, ...) as a map.
inline QVariantMap toVariantMap(const QVariant& value) {
    if (value.canConvert<QVariantMap>()) {
        return value.value<QVariantMap>();
    }
    return {};
}

}  // namespace norvane::gui
