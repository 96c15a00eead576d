#include "marlockCommon/OTPToken.h"

#include "marlockCommon/TimeSource.h"
#include "marlockCommon/TokenError.h"
#include "marlockCommon/internal/Hmac.h"

#include <QtEndian>

#include <cmath>
#include <limits>

namespace marlockCommon {

namespace {

const QString typeKey = QStringLiteral("type");
const QString issuerKey = QStringLiteral("issuer");
const QString accountKey = QStringLiteral("account");
const QString secretKey = QStringLiteral("secret");
const QString algorithmKey = QStringLiteral("algorithm");
const QString digitsKey = QStringLiteral("digits");
const QString periodKey = QStringLiteral("period");
const QString counterKey = QStringLiteral("counter");

constexpr quint32 powersOfTen[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000};

// 2^64 as a double: time steps at or past it do not fit the 8-byte counter.
constexpr double counterLimit = 18446744073709551616.0;

} // namespace

void OTPToken::validate() const {
    if (secret_.isEmpty())
        throw TokenError(TokenError::Code::emptySecret);
    if (digits_ < minimumDigits || digits_ > maximumDigits)
        throw TokenError(TokenError::Code::invalidDigits, QString::number(digits_));
    if (period_ < 1)
        throw TokenError(TokenError::Code::invalidPeriod, QString::number(period_));
}

QString OTPToken::password() const {
    return password(timeIntervalSince1970());
}

QString OTPToken::password(double timeIntervalSince1970) const {
    validate();
    if (type_ == OTPType::hotp)
        return passwordForCounter(counter_);
    const double steps = std::floor(timeIntervalSince1970 / period_);
    if (!std::isfinite(timeIntervalSince1970) || timeIntervalSince1970 < 0 || steps >= counterLimit)
        throw TokenError(TokenError::Code::invalidTime, QString::number(timeIntervalSince1970, 'f', 3));
    return passwordForCounter(static_cast<quint64>(steps));
}

QString OTPToken::passwordForCounter(quint64 counter) const {
    validate();
    QByteArray message(8, '\0');
    qToBigEndian(counter, message.data());
    const QByteArray mac = internal::hmac(algorithm_, secret_, message);
    // Dynamic truncation: the low nibble of the last byte picks where 31 bits are read.
    const int offset = static_cast<quint8>(mac.back()) & 0x0F;
    const quint32 bits = qFromBigEndian<quint32>(mac.constData() + offset) & 0x7FFFFFFF;
    const quint32 code = bits % powersOfTen[digits_];
    return QStringLiteral("%1").arg(code, digits_, 10, QLatin1Char('0'));
}

double OTPToken::timeRemaining() const {
    return timeRemaining(timeIntervalSince1970());
}

double OTPToken::timeRemaining(double timeIntervalSince1970) const {
    if (type_ != OTPType::totp || period_ < 1 || !std::isfinite(timeIntervalSince1970) ||
        timeIntervalSince1970 < 0)
        return 0;
    return period_ - std::fmod(timeIntervalSince1970, period_);
}

TokenRecord OTPToken::toTokenRecord(bool includeSecret) const {
    TokenRecord record;
    record.type = type_;
    record.issuer = issuer_;
    record.account = account_;
    if (includeSecret)
        record.secret = secret_;
    record.algorithm = algorithm_;
    record.digits = digits_;
    record.period = period_;
    record.counter = counter_;
    return record;
}

void OTPToken::encode(KeyedEncoder& coder) const {
    coder.encodeString(typeName(type_), typeKey);
    coder.encodeString(issuer_, issuerKey);
    coder.encodeString(account_, accountKey);
    coder.encodeData(secret_, secretKey);
    coder.encodeString(algorithmName(algorithm_), algorithmKey);
    coder.encodeInt64(digits_, digitsKey);
    coder.encodeInt64(period_, periodKey);
    coder.encodeInt64(static_cast<qint64>(counter_), counterKey);
}

std::shared_ptr<OTPToken> OTPToken::decode(KeyedDecoder& coder) {
    auto refuse = [&coder](const QString& why) {
        coder.failWithError(QStringLiteral("OTPToken: ") + why);
        return std::shared_ptr<OTPToken>();
    };
    const auto type = coder.decodeStringForKey(typeKey);
    const auto issuer = coder.decodeStringForKey(issuerKey);
    const auto account = coder.decodeStringForKey(accountKey);
    const auto secret = coder.decodeDataForKey(secretKey);
    const auto algorithm = coder.decodeStringForKey(algorithmKey);
    const auto digits = coder.decodeInt64ForKey(digitsKey);
    const auto period = coder.decodeInt64ForKey(periodKey);
    const auto counter = coder.decodeInt64ForKey(counterKey);
    if (!type || !issuer || !account || !secret || !algorithm || !digits || !period || !counter)
        return refuse(QStringLiteral("a field is missing or of the wrong type"));

    const auto knownType = typeFromName(*type);
    if (!knownType)
        return refuse(QStringLiteral("unknown type \"%1\"").arg(*type));
    const auto knownAlgorithm = algorithmFromName(*algorithm);
    if (!knownAlgorithm)
        return refuse(QStringLiteral("unknown algorithm \"%1\"").arg(*algorithm));
    constexpr auto intMin = std::numeric_limits<int>::min();
    constexpr auto intMax = std::numeric_limits<int>::max();
    if (*digits < intMin || *digits > intMax || *period < intMin || *period > intMax)
        return refuse(QStringLiteral("digits or period out of range"));

    auto token = std::make_shared<OTPToken>();
    token->type_ = *knownType;
    token->issuer_ = *issuer;
    token->account_ = *account;
    token->secret_ = *secret;
    token->algorithm_ = *knownAlgorithm;
    token->digits_ = static_cast<int>(*digits);
    token->period_ = static_cast<int>(*period);
    token->counter_ = static_cast<quint64>(*counter);
    return token;
}

} // namespace marlockCommon
