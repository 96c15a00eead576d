#include "marlockCompanionCommon/platform/runtime/Error.h"

namespace platform {

Error::Error(QString domain, qint64 code, QVariantMap userInfo)
    : domain(std::move(domain))
    , code(code)
    , userInfo(std::move(userInfo)) {}

QString Error::description() const {
    const QString text = userInfo.value(localizedDescriptionKey).toString();
    if (!text.isEmpty())
        return text;
    return QStringLiteral("%1 error %2").arg(domain).arg(code);
}

} // namespace platform
