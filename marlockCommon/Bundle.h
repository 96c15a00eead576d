#pragma once

#include "marlockCommon/Export.h"

#include <QByteArray>
#include <QString>

#include <optional>

// The resources of marlockCommon, compiled into the library. A host finds them by the library's
// bundle identifier and a resource's name and type, e.g. the initial view preferences:
//
//   if (auto bytes = marlockCommon::resourceData("defaults", "plist"))
//       ... parse *bytes as a property list ...
namespace marlockCommon {

// "org.marlock.common".
MARLOCK_COMMON_EXPORT QString bundleIdentifier();

// The bytes of the resource `name`.`type` ("defaults", "plist"); absent when there is none.
// Thread-safe.
MARLOCK_COMMON_EXPORT std::optional<QByteArray> resourceData(const QString& name, const QString& type);

// The Qt resource path of the resource (":/org.marlock.common/defaults.plist"); absent when
// there is none.
MARLOCK_COMMON_EXPORT std::optional<QString> resourcePath(const QString& name, const QString& type);

} // namespace marlockCommon
