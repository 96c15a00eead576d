#include "marlockCommon/OTPTypes.h"

namespace marlockCommon {

QString typeName(OTPType type) {
    return type == OTPType::hotp ? QStringLiteral("hotp") : QStringLiteral("totp");
}

QString algorithmName(OTPAlgorithm algorithm) {
    switch (algorithm) {
    case OTPAlgorithm::sha1:
        return QStringLiteral("SHA1");
    case OTPAlgorithm::sha256:
        return QStringLiteral("SHA256");
    case OTPAlgorithm::sha512:
        return QStringLiteral("SHA512");
    }
    return {};
}

std::optional<OTPType> typeFromName(const QString& name) {
    for (auto type : {OTPType::totp, OTPType::hotp})
        if (name.compare(typeName(type), Qt::CaseInsensitive) == 0)
            return type;
    return std::nullopt;
}

std::optional<OTPAlgorithm> algorithmFromName(const QString& name) {
    for (auto algorithm : {OTPAlgorithm::sha1, OTPAlgorithm::sha256, OTPAlgorithm::sha512})
        if (name.compare(algorithmName(algorithm), Qt::CaseInsensitive) == 0)
            return algorithm;
    return std::nullopt;
}

} // namespace marlockCommon
