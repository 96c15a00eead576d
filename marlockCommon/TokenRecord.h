#pragma once

#include "marlockCommon/Export.h"
#include "marlockCommon/OTPTypes.h"

#include <QByteArray>
#include <QString>

#include <memory>

namespace marlockCommon {

class OTPToken;

// The stored description of one token: what the companion keeps, syncs and shows. A plain value;
// nothing is checked until `validate()` (or a code is computed from it).
//
//   TokenRecord record;
//   record.issuer = "Example";
//   record.account = "alice@example.org";
//   record.secret = Base32::decode(u"JBSWY3DPEHPK3PXP");
//   QString code = record.toOTPToken()->password();
struct MARLOCK_COMMON_EXPORT TokenRecord {
    OTPType type = OTPType::totp;
    QString issuer;    // the service, may be empty
    QString account;   // the account name at that service, may be empty
    QByteArray secret; // the raw HMAC key (not Base32)
    OTPAlgorithm algorithm = OTPAlgorithm::sha1;
    int digits = 6;      // 6 to 8
    int period = 30;     // seconds per time step, at least 1; used by TOTP only
    quint64 counter = 0; // the next counter value; used by HOTP only

    // Throws TokenError (emptySecret, invalidDigits, invalidPeriod) when no code can be computed
    // from this record.
    void validate() const;

    // A token object with the same fields. With `includeSecret` false the token's secret is left
    // empty: a copy for listing or display that carries no key material (it cannot compute codes).
    // Never throws; an invalid record gives an equally invalid token.
    std::shared_ptr<OTPToken> toOTPToken(bool includeSecret = true) const;

    bool operator==(const TokenRecord&) const = default;
};

} // namespace marlockCommon
