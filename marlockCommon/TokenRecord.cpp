#include "marlockCommon/TokenRecord.h"

#include "marlockCommon/OTPToken.h"

namespace marlockCommon {

void TokenRecord::validate() const {
    // One set of rules for both forms: the token's.
    toOTPToken()->validate();
}

std::shared_ptr<OTPToken> TokenRecord::toOTPToken(bool includeSecret) const {
    auto token = std::make_shared<OTPToken>();
    token->setType(type);
    token->setIssuer(issuer);
    token->setAccount(account);
    if (includeSecret)
        token->setSecret(secret);
    token->setAlgorithm(algorithm);
    token->setDigits(digits);
    token->setPeriod(period);
    token->setCounter(counter);
    return token;
}

} // namespace marlockCommon
