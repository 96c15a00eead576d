#include "Command.h"
#include "Console.h"

#include "marlockCommon/OTPToken.h"
#include "marlockCommon/TimeSource.h"
#include "marlockCommon/TokenRecord.h"

#include <cmath>

using namespace marlockCommon;

namespace {

// The published test keys of RFC 6238, one per hash, so the codes can be checked by hand.
std::vector<TokenRecord> sampleTokens() {
    auto sample = [](OTPAlgorithm algorithm, const QString& account, const QByteArray& key) {
        TokenRecord record;
        record.issuer = QStringLiteral("RFC 6238");
        record.account = account;
        record.algorithm = algorithm;
        record.secret = key;
        record.digits = 8;
        return record;
    };
    return {
        sample(OTPAlgorithm::sha1, QStringLiteral("sha1@example.org"), "12345678901234567890"),
        sample(OTPAlgorithm::sha256, QStringLiteral("sha256@example.org"),
               "12345678901234567890123456789012"),
        sample(OTPAlgorithm::sha512, QStringLiteral("sha512@example.org"),
               "1234567890123456789012345678901234567890123456789012345678901234"),
    };
}

int run(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Shows the current codes of built-in sample tokens."));
    if (const int status = console::parse(parser, QStringLiteral("demo"), arguments, 0); status >= 0)
        return status;

    // One reading of the clock for every row, so all codes belong to the same moment.
    const double now = timeIntervalSince1970();
    auto& out = console::out();
    out << QStringLiteral("Issuer").leftJustified(10) << QStringLiteral("Account").leftJustified(20)
        << QStringLiteral("Algorithm").leftJustified(11) << QStringLiteral("Code").leftJustified(10)
        << "Left\n";
    for (const TokenRecord& record : sampleTokens()) {
        const auto token = record.toOTPToken();
        out << record.issuer.leftJustified(10) << record.account.leftJustified(20)
            << algorithmName(record.algorithm).leftJustified(11) << token->password(now).leftJustified(10)
            << static_cast<int>(std::ceil(token->timeRemaining(now))) << " s\n";
    }
    out.flush();
    return console::success;
}

} // namespace

Command demoCommand() {
    return {QStringLiteral("demo"), QStringLiteral("Shows the current codes of built-in sample tokens."),
            run};
}
