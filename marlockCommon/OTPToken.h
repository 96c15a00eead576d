#pragma once

#include "marlockCommon/Export.h"
#include "marlockCommon/KeyedCoding.h"
#include "marlockCommon/OTPTypes.h"
#include "marlockCommon/TokenRecord.h"

#include <QByteArray>
#include <QString>

#include <memory>

namespace marlockCommon {

// A token that computes one-time passwords: HOTP (RFC 4226) and TOTP (RFC 6238) with HMAC-SHA1,
// -SHA256 or -SHA512. Codes for "now" read the process's shared time source,
// timeIntervalSince1970(), so that they agree with the period clock.
//
// Setting fields checks nothing; computing a code validates first and throws TokenError.
// Archived (SecureCoding) under the class name "OTPToken" with the keys below.
//
//   auto token = record.toOTPToken();
//   QString now = token->password();              // e.g. "287082"
//   QString then = token->password(1111111109.0);  // the code of that moment
class MARLOCK_COMMON_EXPORT OTPToken final : public SecureCoding {
public:
    OTPToken() = default;
    OTPToken(const OTPToken&) = delete;
    OTPToken& operator=(const OTPToken&) = delete;

    OTPType type() const { return type_; }
    void setType(OTPType type) { type_ = type; }
    QString issuer() const { return issuer_; }
    void setIssuer(const QString& issuer) { issuer_ = issuer; }
    QString account() const { return account_; }
    void setAccount(const QString& account) { account_ = account; }
    QByteArray secret() const { return secret_; }
    void setSecret(const QByteArray& secret) { secret_ = secret; }
    OTPAlgorithm algorithm() const { return algorithm_; }
    void setAlgorithm(OTPAlgorithm algorithm) { algorithm_ = algorithm; }
    int digits() const { return digits_; }
    void setDigits(int digits) { digits_ = digits; }
    int period() const { return period_; }
    void setPeriod(int period) { period_ = period; }
    quint64 counter() const { return counter_; }
    void setCounter(quint64 counter) { counter_ = counter; }

    // Throws TokenError (emptySecret, invalidDigits, invalidPeriod) when no code can be computed.
    void validate() const;

    // The current code: TOTP at timeIntervalSince1970(), HOTP at counter(). Throws TokenError.
    [[nodiscard]] QString password() const;
    // TOTP: the code at `timeIntervalSince1970` seconds (invalidTime before 1970 or not finite).
    // HOTP: the code at counter(); the time plays no part.
    [[nodiscard]] QString password(double timeIntervalSince1970) const;
    // The RFC 4226 code for one counter value, whatever the type. Throws TokenError.
    [[nodiscard]] QString passwordForCounter(quint64 counter) const;

    // TOTP: seconds until the code after `timeIntervalSince1970` (or now) takes over, in
    // (0, period]. HOTP, or a period below 1: 0.
    double timeRemaining() const;
    double timeRemaining(double timeIntervalSince1970) const;

    // The same fields as a record; with `includeSecret` false the record's secret is left empty.
    TokenRecord toTokenRecord(bool includeSecret = true) const;

    // SecureCoding. Keys: "type" (string), "issuer" (string), "account" (string), "secret"
    // (data), "algorithm" (string), "digits" (int64), "period" (int64), "counter" (int64, the
    // unsigned counter's bits).
    static QString archivedClassName() { return QStringLiteral("OTPToken"); }
    QString className() const override { return archivedClassName(); }
    void encode(KeyedEncoder& coder) const override;
    // A token from its archive entry; null (after coder.failWithError) when a key is missing,
    // holds another type, or names an unknown type or algorithm. Digits and period are read as
    // stored and checked when a code is computed.
    static std::shared_ptr<OTPToken> decode(KeyedDecoder& coder);

private:
    OTPType type_ = OTPType::totp;
    QString issuer_;
    QString account_;
    QByteArray secret_;
    OTPAlgorithm algorithm_ = OTPAlgorithm::sha1;
    int digits_ = 6;
    int period_ = 30;
    quint64 counter_ = 0;
};

} // namespace marlockCommon
