#pragma once

#include <QtGlobal>

// The layout of a binary property list ("bplist00"), shared by its reader and writer:
//
//   "bplist00" | objects… | offset table | trailer (32 bytes)
//
// Each object starts with a marker byte, its type in the high nibble and a size or count in the
// low one (0xF: the count follows as an integer object). Containers hold references: indexes
// into the offset table, which gives each object's position. The trailer ends the bytes with
// the offset and reference widths, the object count, the top object and the table's position.
// Every number is big-endian.
namespace platform::PropertyList::internal::bplist {

inline constexpr char magic[] = "bplist00";
inline constexpr qsizetype headerSize = 8;
inline constexpr qsizetype trailerSize = 32;

// Marker types (high nibble) and the fixed markers.
enum : quint8 {
    nullMarker = 0x00,
    falseMarker = 0x08,
    trueMarker = 0x09,
    integerType = 0x10,
    realType = 0x20,
    dateMarker = 0x33,
    dataType = 0x40,
    asciiStringType = 0x50,
    utf16StringType = 0x60,
    uidType = 0x80,
    arrayType = 0xA0,
    setType = 0xC0,
    dictionaryType = 0xD0,
};

// Dates count seconds from 2001-01-01T00:00:00Z, as a double.
inline constexpr qint64 referenceDateMSecs = 978307200000;
// Years 1 to 9999: what ISO 8601 text (and so XML, and most readers) can express.
inline constexpr qint64 earliestDateMSecs = -62135596800000;
inline constexpr qint64 latestDateMSecs = 253402300799999;

} // namespace platform::PropertyList::internal::bplist
