#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QVariant>

#include <optional>

// What FXKeychain stores for an object: the object itself, with nulls taken out. A null
// (QVariant::fromValue(nullptr)) or nil has no representation; an array keeps the
// representations of its elements in order, leaving out those without one; a dictionary maps
// each key, unchanged, to its value's representation, leaving out entries without one.
//
//   FXKeychain_propertyListRepresentation(QVariantList{1, QVariant::fromValue(nullptr), 2})
//       == QVariantList{1, 2}
MCC_EXPORT std::optional<QVariant> FXKeychain_propertyListRepresentation(const QVariant& object);
