#pragma once

#include "marlockCompanionCommon/platform/KeyedArchiverTypes.h"

#include <QByteArray>
#include <QVariant>

#include <memory>

namespace platform {

// Writes objects as a keyed archive: a binary property list in the standard layout that other
// tools read ("$archiver" "NSKeyedArchiver", "$version" 100000, "$top", "$objects" with "$null"
// first, objects referring to each other by UID, class dictionaries with "$classname" and
// "$classes").
//
// Built-in values: QString ("NSString"), bool/integers/double ("NSNumber"), QByteArray
// ("NSData"), QDateTime ("NSDate"), QVariantList and QStringList ("NSArray"), QVariantMap and
// QVariantHash ("NSDictionary"), ArchivedSet ("NSSet"), a null QVariant::fromValue(nullptr)
// ("NSNull"); an invalid QVariant is nil. Other classes encode themselves through
// KeyedArchiverClasses.h.
//
// Anything it cannot encode throws ArchiveException named invalidArchiveOperationException.
//
//   QByteArray bytes = KeyedArchiver::archivedData(QVariantList{1, "two"}, true);
class KeyedArchiver {
public:
    KeyedArchiver();
    ~KeyedArchiver();
    KeyedArchiver(const KeyedArchiver&) = delete;
    KeyedArchiver& operator=(const KeyedArchiver&) = delete;

    // With secure coding required, classes that don't support it are refused.
    void setRequiresSecureCoding(bool required);
    bool requiresSecureCoding() const;

    // Encoders for the object being encoded (the archive's top level until a class encodes itself).
    void encodeObject(const QVariant& object, const QString& key);
    void encodeString(const QString& value, const QString& key);
    void encodeDouble(double value, const QString& key);
    void encodeBool(bool value, const QString& key);
    void encodeInteger(qint64 value, const QString& key);
    void encodeData(const QByteArray& value, const QString& key);

    // Ends the archive; encoding afterwards throws.
    void finishEncoding();
    // The archive's bytes (after finishEncoding()).
    QByteArray encodedData() const;

    // The archive of `root` under KeyedArchive::rootObjectKey.
    static QByteArray archivedData(const QVariant& root, bool requiresSecureCoding);

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace platform
