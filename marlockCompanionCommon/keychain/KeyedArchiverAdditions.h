#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/platform/runtime/Error.h"

#include <QByteArray>
#include <QStringList>
#include <QVariant>

#include <optional>

// Keyed-archive helpers that report archive failures as errors instead of exceptions.
//
// A failure gives absent and, when `error` is given, an error whose domain is the exception's
// name ("NSInvalidArchiveOperationException" or "NSInvalidUnarchiveOperationException"), code
// -1, and user info {NSLocalizedDescription: the exception's name, NSLocalizedFailureReason: its
// reason}. Exceptions of any other kind pass through.

// The user-info key of the failure reason.
inline const QString jr_localizedFailureReasonErrorKey = QStringLiteral("NSLocalizedFailureReason");

// The classes every unarchive allows, before the caller's extra classes.
MCC_EXPORT const QStringList& jr_standardAllowedClasses();

// The keyed archive of `rootObject` (see platform::KeyedArchiver), or absent.
//
//   auto bytes = jr_archivedDataWithRootObject(QVariantList{token}, true, &error);
MCC_EXPORT std::optional<QByteArray> jr_archivedDataWithRootObject(const QVariant& rootObject,
                                                                   bool requiresSecureCoding,
                                                                   platform::Error* error = nullptr);

// The root object of the archive `data`, or absent. Allowed classes: NSArray, NSDictionary,
// NSSet, NSOrderedSet, NSString, NSNumber, NSValue, NSDate, NSData, NSNull, NSURL, NSUUID,
// NSError, NSTimeZone, plus every class in `whitelist`. (NSOrderedSet, NSURL, NSUUID, NSError and
// NSTimeZone are allowed but have no decoder in this library: an archive holding one fails as an
// unknown class.)
//
//   auto root = jr_unarchiveData(bytes, true, {"OTPToken"}, &error);
MCC_EXPORT std::optional<QVariant> jr_unarchiveData(const QByteArray& data, bool requiresSecureCoding,
                                                    const QStringList& whitelist = {},
                                                    platform::Error* error = nullptr);
