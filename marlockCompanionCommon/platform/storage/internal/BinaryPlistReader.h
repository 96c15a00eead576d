#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <optional>

namespace platform::PropertyList::internal {

// Reads a binary property list without trusting it: the trailer and offset table must lie
// inside the bytes, every reference must name an object, no container may reach itself,
// nesting stays within `maximumDepth`, the tree once shared objects are counted at every use
// stays small, and dictionary keys are strings. Strings come back exactly as stored (NUL,
// a leading U+FEFF and all); integers as qint64, or quint64 above 2^63 - 1; sets as arrays.
//
// Absent, with `problem` set, for anything malformed.
std::optional<QVariant> readBinaryPlist(const QByteArray& bytes, int maximumDepth, QString* problem);

} // namespace platform::PropertyList::internal
