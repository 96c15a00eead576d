#pragma once

#include "marlockCompanionCommon/platform/KeyedArchiverTypes.h"

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
// the classes it expects). Built-in class names: NSArray, NSMutableArray, NSDictionary,
// NSMutableDictionary, NSSet, NSMutableSet, NSString, NSMutableString, NSNumber (an NSValue),
// NSData, NSMutableData, NSDate, NSNull; NSObject allows every class.
//
// Every problem throws ArchiveException named invalidUnarchiveOperationException: bytes that are
// not a binary keyed archive, unknown or disallowed classes, values of the wrong type, dangling or
// cyclic references, nesting deeper than 200 levels, more than 2,000,000 objects or an archive
// that would expand to more than 10,000,000 values.
//
//   KeyedUnarchiver unarchiver(bytes);
//   QVariant root = unarchiver.decodeObjectOfClasses({"NSArray", "NSNumber"}, KeyedArchive::rootObjectKey);
class KeyedUnarchiver {
public:
    // Parses the archive's outer structure; throws when it is not a keyed archive.
    explicit KeyedUnarchiver(const QByteArray& data);
    ~KeyedUnarchiver();
    KeyedUnarchiver(const KeyedUnarchiver&) = delete;
    KeyedUnarchiver& operator=(const KeyedUnarchiver&) = delete;

    void setRequiresSecureCoding(bool required);
    bool requiresSecureCoding() const;

    // Whether the object being decoded has a value for `key`.
    bool containsValueForKey(const QString& key) const;

    // The object under `key` (an invalid QVariant for nil or a missing key), of one of `classes`.
    QVariant decodeObjectOfClasses(const QStringList& classes, const QString& key);
    // The object under `key` without an allow-list; throws when secure coding is required.
    QVariant decodeObject(const QString& key);

    // Typed decoders: a missing key gives the empty value; a value of another type throws.
    QString decodeString(const QString& key);
    double decodeDouble(const QString& key);
    bool decodeBool(const QString& key);
    qint64 decodeInteger(const QString& key);
    QByteArray decodeData(const QString& key);

    // Ends decoding; decoding afterwards throws.
    void finishDecoding();

    // The root object of `data`, secure decoding with `classes`.
    static QVariant unarchivedObjectOfClasses(const QStringList& classes, const QByteArray& data);

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace platform
