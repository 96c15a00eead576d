#pragma once

#include "marlockCommon/Export.h"

#include <QByteArray>
#include <QString>

#include <exception>

namespace marlockCommon {

// The one error type of marlockCommon: everything here that can fail throws a TokenError.
// It carries an error enumeration (`code()`), whose raw name is stable ("invalidDigits"), and a
// human-readable message naming what was wrong.
//
//   try {
//       const marlockCommon::TokenRecord record = marlockCommon::KeyURI::parse(text);
//   } catch (const marlockCommon::TokenError& error) {
//       qWarning() << error.message();   // "Bad digits (must be 6, 7 or 8): 12"
//   }
class MARLOCK_COMMON_EXPORT TokenError : public std::exception {
public:
    enum class Code {
        invalidURI = 1,     // not an absolute URI of the form scheme://type/label?query
        unsupportedScheme,  // the scheme is not "otpauth"
        unknownType,        // the type is neither "totp" nor "hotp"
        invalidEncoding,    // a bad percent escape, or text that is not UTF-8
        duplicateParameter, // a known query parameter given twice
        missingSecret,      // no "secret" parameter
        invalidBase32,      // the secret is not Base32
        emptySecret,        // the secret holds no bytes
        invalidAlgorithm,   // not SHA1, SHA256 or SHA512
        invalidDigits,      // not 6, 7 or 8 digits
        invalidPeriod,      // a time step that is not a positive whole number of seconds
        missingCounter,     // an HOTP key without its "counter"
        invalidCounter,     // a counter that is not an unsigned 64-bit number
        invalidTime,        // a time before 1970, not finite, or too far out
    };

    // `detail` names the offending value or part; it goes into the message.
    explicit TokenError(Code code, const QString& detail = {});

    Code code() const noexcept { return code_; }
    QString detail() const { return detail_; }

    // "<what is wrong>: <detail>", for people.
    QString message() const;
    const char* what() const noexcept override { return what_.constData(); }

    // The error domain used when this error is reported in the error-object style.
    static QString domain() { return QStringLiteral("marlockCommon.TokenError"); }

    // The stable raw name of `code`, e.g. "invalidDigits".
    static QString codeName(Code code);

private:
    Code code_;
    QString detail_;
    QByteArray what_;
};

} // namespace marlockCommon
