#include "marlockCompanionCommon/keychain/KeyedArchiverAdditions.h"

#include "marlockCompanionCommon/keychain/KeyedArchiver.h"
#include "marlockCompanionCommon/keychain/KeyedUnarchiver.h"

namespace {

platform::Error errorFor(const platform::ArchiveException& exception) {
    return platform::Error(exception.name(), -1,
                           {{platform::Error::localizedDescriptionKey, exception.name()},
                            {jr_localizedFailureReasonErrorKey, exception.reason()}});
}

} // namespace

const QStringList& jr_standardAllowedClasses() {
    static const QStringList classes = {
        QStringLiteral("NSArray"),      QStringLiteral("NSDictionary"), QStringLiteral("NSSet"),
        QStringLiteral("NSOrderedSet"), QStringLiteral("NSString"),     QStringLiteral("NSNumber"),
        QStringLiteral("NSValue"),      QStringLiteral("NSDate"),       QStringLiteral("NSData"),
        QStringLiteral("NSNull"),       QStringLiteral("NSURL"),        QStringLiteral("NSUUID"),
        QStringLiteral("NSError"),      QStringLiteral("NSTimeZone"),
    };
    return classes;
}

std::optional<QByteArray> jr_archivedDataWithRootObject(const QVariant& rootObject, bool requiresSecureCoding,
                                                        platform::Error* error) {
    try {
        platform::KeyedArchiver archiver;
        archiver.setRequiresSecureCoding(requiresSecureCoding);
        archiver.encodeObject(rootObject, platform::KeyedArchive::rootObjectKey);
        archiver.finishEncoding();
        return archiver.encodedData();
    } catch (const platform::ArchiveException& exception) {
        if (exception.name() != platform::KeyedArchive::invalidArchiveOperationException)
            throw;
        platform::setError(error, errorFor(exception));
        return std::nullopt;
    }
}

std::optional<QVariant> jr_unarchiveData(const QByteArray& data, bool requiresSecureCoding,
                                         const QStringList& whitelist, platform::Error* error) {
    try {
        platform::KeyedUnarchiver unarchiver(data);
        unarchiver.setRequiresSecureCoding(requiresSecureCoding);
        const QStringList allowed = jr_standardAllowedClasses() + whitelist;
        QVariant root = unarchiver.decodeValueOfClasses(allowed, platform::KeyedArchive::rootObjectKey);
        unarchiver.finishDecoding();
        return root;
    } catch (const platform::ArchiveException& exception) {
        if (exception.name() != platform::KeyedArchive::invalidUnarchiveOperationException)
            throw;
        platform::setError(error, errorFor(exception));
        return std::nullopt;
    }
}
