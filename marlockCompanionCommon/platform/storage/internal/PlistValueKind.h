#pragma once

#include <QVariant>

namespace platform::PropertyList::internal {

// Which property-list object a QVariant becomes, by its type alone (a date may still be
// invalid, an unsigned integer still too large for a format). Both writers and the type check
// share this one table, so they cannot disagree about what a property-list value is.
enum class Kind { None, String, Data, Boolean, Integer, UnsignedInteger, Real, Date, Array, Dictionary, Uid };

Kind kindOf(const QVariant& value);

// The entries of a dictionary value (QVariantMap or QVariantHash), in key order.
QVariantMap dictionaryOf(const QVariant& value);

} // namespace platform::PropertyList::internal
