#pragma once

#include "marlockCommon/Export.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>

// The seam between objects of marlockCommon and a keyed archiver that lives elsewhere: objects
// say what they write under which key; an archiver (e.g. one writing the standard keyed-archive
// layout) implements the encoder and decoder. marlockCommon itself carries no archive format.
namespace marlockCommon {

class KeyedEncoder;
class KeyedDecoder;

// An object that can be archived by keys and read back under secure decoding, where a reader
// names the classes it accepts before any object is created.
class MARLOCK_COMMON_EXPORT SecureCoding {
public:
    virtual ~SecureCoding() = default;

    // The archived class name, checked against a reader's allow-list ("OTPToken").
    virtual QString className() const = 0;

    // Writes every field of the object into `coder`.
    virtual void encode(KeyedEncoder& coder) const = 0;
};

// Writes values under keys into the archive entry of one object. Keys are unique within an object;
// writing a key twice keeps the last value.
class MARLOCK_COMMON_EXPORT KeyedEncoder {
public:
    virtual ~KeyedEncoder() = default;

    virtual void encodeString(const QString& value, const QString& key) = 0;
    virtual void encodeDouble(double value, const QString& key) = 0;
    virtual void encodeBool(bool value, const QString& key) = 0;
    virtual void encodeInt64(qint64 value, const QString& key) = 0;
    virtual void encodeData(const QByteArray& value, const QString& key) = 0;
    // Archives `object` (by calling its encode with a coder for its own entry) and refers to it.
    virtual void encodeObject(const SecureCoding& object, const QString& key) = 0;
};

// Reads the archive entry of one object. Every typed read gives absent when the key is missing or
// holds another type, so a damaged or hostile archive can be refused without guessing.
class MARLOCK_COMMON_EXPORT KeyedDecoder {
public:
    virtual ~KeyedDecoder() = default;

    // True when secure decoding is on: nested objects are created only from allowed classes.
    virtual bool requiresSecureCoding() const = 0;

    virtual bool containsValueForKey(const QString& key) const = 0;

    virtual std::optional<QString> decodeStringForKey(const QString& key) = 0;
    virtual std::optional<double> decodeDoubleForKey(const QString& key) = 0;
    virtual std::optional<bool> decodeBoolForKey(const QString& key) = 0;
    virtual std::optional<qint64> decodeInt64ForKey(const QString& key) = 0;
    virtual std::optional<QByteArray> decodeDataForKey(const QString& key) = 0;

    // The object under `key`, created only when its archived class name is in `classNames`;
    // null when missing, not allowed or undecodable (the decoder then records a failure).
    virtual std::shared_ptr<SecureCoding> decodeObjectOfClasses(const QStringList& classNames,
                                                                const QString& key) = 0;

    // Records why decoding failed; the first failure is kept and ends the unarchiving.
    virtual void failWithError(const QString& description) = 0;
    // The recorded failure, if any.
    virtual std::optional<QString> error() const = 0;
};

// Creates an object of one archived class from its entry; null when the entry is not acceptable.
using SecureCodingDecodeFunction = std::function<std::shared_ptr<SecureCoding>(KeyedDecoder&)>;

// The decode function registered for `className`, for archivers creating objects by class name.
// marlockCommon's own classes ("OTPToken") are always registered. Thread-safe.
MARLOCK_COMMON_EXPORT std::optional<SecureCodingDecodeFunction> secureCodingClass(const QString& className);

// Registers (or replaces) the decode function of `className`. Thread-safe.
MARLOCK_COMMON_EXPORT void registerSecureCodingClass(const QString& className,
                                                     SecureCodingDecodeFunction decode);

} // namespace marlockCommon
