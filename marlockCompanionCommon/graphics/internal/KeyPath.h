#pragma once

#include <QString>
#include <QVariant>

// Key paths into geometry values ("bounds.origin.y"): a rectangle has "origin" (a point) and
// "size"; a point has "x" and "y"; a size has "width" and "height".
namespace graphics::internal {

// The property a key path starts with ("bounds") and the rest ("origin.y", or empty).
std::pair<QString, QString> splitKeyPath(const QString& keyPath);

// The part of `value` that `subPath` names (the value itself for an empty path); an invalid
// QVariant when the path names no part of such a value.
QVariant partOf(const QVariant& value, QStringView subPath);

// `value` with the part that `subPath` names replaced by `part` (converted to the part's type);
// `value` unchanged when the path names no part of it.
QVariant withPart(const QVariant& value, QStringView subPath, const QVariant& part);

} // namespace graphics::internal
