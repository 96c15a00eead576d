#pragma once

#include "marlockCommon/KeyedCoding.h"
#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/keychain/KeyedArchiverTypes.h"

#include <QByteArray>
#include <QStringList>
#include <QVariant>

#include <memory>

namespace platform {

// Reads keyed archives (see KeyedArchiver), trusting nothing in them.
//
// Secure decoding: with secure coding required (the default), an object decodes only when its
// class, or a class it derives from, is on the allow-list of the call that decodes it
// (collections pass their allow-list on to their elements; a class decoding its own fields names
// the classes it expects). Built-in classes: NSArray, NSMutableArray, NSDictionary,
// NSMutableDictionary, NSSet, NSMutableSet, NSString, NSMutableString, NSNumber (an NSValue),
// NSData, NSMutableData, NSDate, NSNull; NSObject allows every class. Other classes are created
// through the decode functions registered with marlockCommon::registerSecureCodingClass and come
// back as QVariant::fromValue(std::shared_ptr<marlockCommon::SecureCoding>).
//
// Every problem throws ArchiveException named invalidUnarchiveOperationException: bytes that are
// not a binary keyed archive, unknown or disallowed classes, values of the wrong type, dangling or
// cyclic references, strings holding NUL (which no archive can be written with), nesting deeper than 200
// levels, more than 2,000,000 objects, an archive that would expand to more than 10,000,000 values, or a
// class that records a failure while decoding. (The KeyedDecoder calls made by such classes record failures
// instead of throwing.)
//
//   KeyedUnarchiver unarchiver(bytes);
//   QVariant root = unarchiver.decodeValueOfClasses({"NSArray", "OTPToken"}, KeyedArchive::rootObjectKey);
class MCC_EXPORT KeyedUnarchiver final : public marlockCommon::KeyedDecoder {
public:
    // Parses the archive's outer structure; throws when it is not a keyed archive.
    explicit KeyedUnarchiver(const QByteArray& data);
    ~KeyedUnarchiver() override;
    KeyedUnarchiver(const KeyedUnarchiver&) = delete;
    KeyedUnarchiver& operator=(const KeyedUnarchiver&) = delete;

    void setRequiresSecureCoding(bool required);
    bool requiresSecureCoding() const override;

    // Whether the object being decoded has a value for `key`.
    bool containsValueForKey(const QString& key) const override;

    // The value under `key` (an invalid QVariant for nil or a missing key), of one of `classes`.
    // Throws for anything wrong with it.
    QVariant decodeValueOfClasses(const QStringList& classes, const QString& key);

    // KeyedDecoder, for classes decoding their own fields: absent for a missing key or a value of
    // another type; failures of referenced objects are recorded, not thrown.
    std::optional<QString> decodeStringForKey(const QString& key) override;
    std::optional<double> decodeDoubleForKey(const QString& key) override;
    std::optional<bool> decodeBoolForKey(const QString& key) override;
    std::optional<qint64> decodeInt64ForKey(const QString& key) override;
    std::optional<QByteArray> decodeDataForKey(const QString& key) override;
    std::shared_ptr<marlockCommon::SecureCoding> decodeObjectOfClasses(const QStringList& classNames,
                                                                       const QString& key) override;
    void failWithError(const QString& description) override;
    std::optional<QString> error() const override;

    // Ends decoding; decoding afterwards throws.
    void finishDecoding();

    // The root object of `data` (under KeyedArchive::rootObjectKey), secure decoding with `classes`.
    static QVariant unarchivedObjectOfClasses(const QStringList& classes, const QByteArray& data);

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace platform
