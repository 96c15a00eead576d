#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/platform/runtime/Error.h"

#include <QByteArray>
#include <QMetaType>
#include <QVariant>

#include <optional>

// Property lists (binary "bplist00" and XML) on libplist, to and from QVariant values.
//
// Value mapping, both ways:
//   string ↔ QString        data ↔ QByteArray      boolean ↔ bool       integer ↔ qint64
//   real   ↔ double         date ↔ QDateTime (UTC) array ↔ QVariantList dictionary ↔ QVariantMap
//   UID    ↔ platform::PropertyList::Uid (binary only; keyed archives use it)
// Other integer types (int, uint, …) are written as integers (unsigned ones up to 2^63 - 1),
// QStringList as an array and QVariantHash as a dictionary. Any other QVariant type, a string
// holding NUL, or nesting deeper than 256 levels cannot be written and is an error.
// Dates count seconds from 2001-01-01T00:00:00Z and must lie within ±2^31 seconds of it
// (1933 to 2069); binary keeps milliseconds, XML whole seconds.
//
// Reading never trusts its input: malformed bytes, dictionary keys that are not strings,
// cyclic or explosively shared binary object graphs, nesting deeper than 256 levels and inputs
// over 64 MiB give an error, never a crash.
namespace platform::PropertyList {

enum class Format { Xml = 100, Binary = 200 };

// A keyed-archive object reference.
struct MCC_EXPORT Uid {
    quint64 value = 0;
    bool operator==(const Uid&) const = default;
};

// The error domain and codes of property-list failures.
inline const QString errorDomain = QStringLiteral("NSCocoaErrorDomain");
constexpr qint64 readCorruptError = 3840;
constexpr qint64 writeInvalidError = 3851;

// True when `bytes` start with the binary property-list magic "bplist".
MCC_EXPORT bool isBinary(const QByteArray& bytes);

// Serialises `value`; absent (with the error set) when it holds something a property list can't.
MCC_EXPORT std::optional<QByteArray> write(const QVariant& value, Format format, Error* error = nullptr);

// Parses binary or XML bytes (told apart by the magic); `format`, when given, receives which.
MCC_EXPORT std::optional<QVariant> read(const QByteArray& bytes, Format* format = nullptr,
                                        Error* error = nullptr);

} // namespace platform::PropertyList

Q_DECLARE_METATYPE(platform::PropertyList::Uid)
