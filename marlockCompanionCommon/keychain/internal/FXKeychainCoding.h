#pragma once

#include "marlockCompanionCommon/platform/runtime/Error.h"

#include <QByteArray>
#include <QVariant>

#include <optional>

// How FXKeychain turns values into item bytes and back. Kept apart so that the decoding of
// stored (untrusted) bytes can be fuzzed on its own.
namespace keychain::internal {

// The bytes stored for `object`: UTF-8 for a string (unless it starts with "bplist" and parses
// as a property list), else the binary property list of its property-list representation.
// Absent for nil, or with `error` set when the object has no property-list form.
std::optional<QByteArray> encode(const QVariant& object, platform::Error* error);

// The value stored as `data`: a property list when the bytes are a binary one (but never a keyed
// archive), else UTF-8 text. Invalid when neither; `parseError` then receives the property-list
// error, if parsing was tried and failed.
QVariant decode(const QByteArray& data, std::optional<platform::Error>* parseError);

} // namespace keychain::internal
