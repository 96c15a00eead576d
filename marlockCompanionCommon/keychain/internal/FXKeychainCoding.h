#pragma once

#include "marlockCompanionCommon/platform/runtime/Error.h"

#include <QByteArray>
#include <QVariant>

#include <optional>

// How FXKeychain turns values into item bytes and back. Kept apart so that the decoding of
// stored (untrusted) bytes can be fuzzed on its own.
namespace keychain::internal {

// What FXKeychain stores for an object.
struct Encoding {
    // The item's bytes; absent for nil, and for an object without a property-list form (the
    // store then removes the key, and `error` says why).
    std::optional<QByteArray> bytes;
    // A property-list value that cannot be written all the same (nested too deep, a date
    // beyond year 9999): the store fails and keeps what it had.
    bool failed = false;
};

// UTF-8 for a string (unless it starts with "bplist" and parses as a property list), else the
// binary property list of the object's property-list representation.
Encoding encode(const QVariant& object, platform::Error* error);

// The value stored as `data`: a property list when the bytes are a binary one (but never a keyed
// archive), else UTF-8 text. Invalid when neither; `parseError` then receives the property-list
// error, if parsing was tried and failed.
QVariant decode(const QByteArray& data, std::optional<platform::Error>* parseError);

} // namespace keychain::internal
