#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/platform/runtime/Error.h"

#include <QByteArray>
#include <QMetaType>
#include <QVariant>

#include <optional>

// Property lists (binary "bplist00" and XML), to and from QVariant values.
//
// Value mapping, both ways:
//   string ↔ QString        data ↔ QByteArray      boolean ↔ bool       integer ↔ qint64
//   real   ↔ double         date ↔ QDateTime (UTC) array ↔ QVariantList dictionary ↔ QVariantMap
//   UID    ↔ platform::PropertyList::Uid (binary only; keyed archives use it)
// Other integer types (int, uint, …) are written as integers, QStringList as an array and
// QVariantHash as a dictionary. In binary, unsigned integers above 2^63 - 1 are written too and
// read back as quint64. Any other QVariant type, an invalid date, or nesting deeper than 256
// levels cannot be written and is an error.
//
// Binary keeps every string exactly (NUL characters, a leading U+FEFF, any UTF-16), dates to the
// millisecond within years 1 to 9999. XML cannot hold NUL, keeps dates to whole seconds, and only
// within ±2^31 seconds of 2001 (1933 to 2069: a limit of libplist, which handles XML); such
// values are errors there.
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

// True when `value` and everything in it has a property-list type in `format` (the mapping
// above) and every date is valid: write() can then fail only on a limit (nesting, a date or
// number out of the format's range, NUL in XML).
MCC_EXPORT bool isPropertyListValue(const QVariant& value, Format format = Format::Binary);

// Serialises `value`; absent (with the error set) when it holds something a property list can't.
MCC_EXPORT std::optional<QByteArray> write(const QVariant& value, Format format, Error* error = nullptr);

// Parses binary or XML bytes (told apart by the magic); `format`, when given, receives which.
MCC_EXPORT std::optional<QVariant> read(const QByteArray& bytes, Format* format = nullptr,
                                        Error* error = nullptr);

} // namespace platform::PropertyList

Q_DECLARE_METATYPE(platform::PropertyList::Uid)
