#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <optional>

namespace platform::PropertyList::internal {

// Writes `value` as a binary property list. Strings go as ASCII when they can, else as UTF-16,
// so any text is kept exactly, NUL and byte-order mark included. Integers take the smallest
// width readers accept (negative ones 8 bytes, unsigned ones above 2^63 - 1 16 bytes). Every
// value is an object of its own: nothing is shared, which only costs size.
//
// Absent, with `problem` set, when the value holds something that is no property-list value,
// an invalid date or one outside years 1 to 9999, or nests deeper than `maximumDepth`.
std::optional<QByteArray> writeBinaryPlist(const QVariant& value, int maximumDepth, QString* problem);

} // namespace platform::PropertyList::internal
