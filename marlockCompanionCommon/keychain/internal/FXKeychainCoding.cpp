#include "marlockCompanionCommon/keychain/internal/FXKeychainCoding.h"

#include "marlockCompanionCommon/keychain/FXKeychainPropertyList.h"
#include "marlockCompanionCommon/platform/storage/PropertyList.h"

#include <QStringDecoder>

namespace keychain::internal {
namespace {

const QByteArray kBinaryMagic = QByteArrayLiteral("bplist");

QVariant strictUtf8(const QByteArray& data) {
    // A leading U+FEFF is part of the stored text, not a byte-order mark to drop.
    QStringDecoder decoder(QStringDecoder::Utf8,
                           QStringDecoder::Flag::Stateless | QStringDecoder::Flag::ConvertInitialBom);
    QString text = decoder.decode(data);
    if (decoder.hasError())
        return QVariant();
    return text;
}

} // namespace

Encoding encode(const QVariant& object, platform::Error* error) {
    if (!object.isValid())
        return {};
    if (object.metaType().id() == QMetaType::QString) {
        const QString text = object.toString();
        const QByteArray utf8 = text.toUtf8();
        // A string that would read back as a property list is stored as one, so that reading
        // cannot mistake it for a serialised value.
        if (!text.startsWith(QLatin1String(kBinaryMagic)) || !platform::PropertyList::read(utf8))
            return {utf8};
    }
    const std::optional<QVariant> representation = FXKeychain_propertyListRepresentation(object);
    if (!representation || !platform::PropertyList::isPropertyListValue(*representation)) {
        platform::setError(error, platform::Error(platform::PropertyList::errorDomain,
                                                  platform::PropertyList::writeInvalidError,
                                                  {{platform::Error::localizedDescriptionKey,
                                                    QStringLiteral("The object has no property-list "
                                                                   "representation.")}}));
        return {};
    }
    platform::Error writeError;
    std::optional<QByteArray> bytes =
        platform::PropertyList::write(*representation, platform::PropertyList::Format::Binary, &writeError);
    if (!bytes) {
        platform::setError(error, writeError);
        return {std::nullopt, true};
    }
    return {std::move(bytes)};
}

QVariant decode(const QByteArray& data, std::optional<platform::Error>* parseError) {
    QVariant result;
    auto format = platform::PropertyList::Format::Binary;
    if (data.size() >= kBinaryMagic.size() && data.startsWith(kBinaryMagic)) {
        platform::Error error;
        if (std::optional<QVariant> parsed = platform::PropertyList::read(data, &format, &error)) {
            // A keyed archive is not trusted here: it is never unarchived.
            const bool archive = parsed->metaType().id() == QMetaType::QVariantMap &&
                                 parsed->toMap().contains(QStringLiteral("$archiver"));
            if (!archive)
                result = std::move(*parsed);
        } else if (parseError) {
            *parseError = error;
        }
    }
    if (!result.isValid() || format != platform::PropertyList::Format::Binary)
        result = strictUtf8(data);
    return result;
}

} // namespace keychain::internal
