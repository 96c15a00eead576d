#include "StoredToken.h"

namespace companion {

QString StoredToken::displayName() const {
    if (!record.issuer.isEmpty() && !record.account.isEmpty())
        return QStringLiteral("%1 (%2)").arg(record.issuer, record.account);
    if (!record.issuer.isEmpty())
        return record.issuer;
    if (!record.account.isEmpty())
        return record.account;
    return QStringLiteral("Unnamed token");
}

} // namespace companion
