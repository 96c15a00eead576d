#pragma once

#include "marlockCommon/KeyedCoding.h"
#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/keychain/KeyedArchiverTypes.h"

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
// ("NSNull"); an invalid QVariant is nil. Objects of other classes travel as
// QVariant::fromValue(std::shared_ptr<marlockCommon::SecureCoding>) and encode themselves through
// the KeyedEncoder interface this class implements, under their className().
//
// Anything it cannot encode throws ArchiveException named invalidArchiveOperationException.
//
//   QByteArray bytes = KeyedArchiver::archivedData(QVariantList{1, "two"}, true);
class MCC_EXPORT KeyedArchiver final : public marlockCommon::KeyedEncoder {
public:
    KeyedArchiver();
    ~KeyedArchiver() override;
    KeyedArchiver(const KeyedArchiver&) = delete;
    KeyedArchiver& operator=(const KeyedArchiver&) = delete;

    // Recorded for callers that ask; every class this archiver writes supports secure coding.
    void setRequiresSecureCoding(bool required);
    bool requiresSecureCoding() const;

    // Encoders for the object being encoded (the archive's top level until a class encodes
    // itself). Strings and objects are stored as references; numbers and data inline.
    void encodeObject(const QVariant& object, const QString& key);
    void encodeObject(const marlockCommon::SecureCoding& object, const QString& key) override;
    void encodeString(const QString& value, const QString& key) override;
    void encodeDouble(double value, const QString& key) override;
    void encodeBool(bool value, const QString& key) override;
    void encodeInt64(qint64 value, const QString& key) override;
    void encodeData(const QByteArray& value, const QString& key) override;

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
