// Feeds arbitrary text to the key-URI and Base32 readers. Besides "never crash", it checks the
// properties the rest of the product relies on: whatever parses is a valid token that computes
// codes, writes back to a URI that reads as the same record, and Base32 decoding is the inverse
// of encoding.
//
//   build-fuzz/fuzz/marlockCommon/fuzz_keyuri -dict=fuzz/marlockCommon/keyuri.dict \
//       -max_total_time=120 corpus-dir fuzz/marlockCommon/corpus
#include "marlockCommon/Base32.h"
#include "marlockCommon/KeyURI.h"
#include "marlockCommon/OTPToken.h"
#include "marlockCommon/TokenError.h"

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

using namespace marlockCommon;

namespace {

[[noreturn]] void violated(const char* property, const QString& input) {
    std::fprintf(stderr, "property violated: %s\ninput: %s\n", property, input.toUtf8().constData());
    std::abort();
}

void checkBase32(const QString& text) {
    QByteArray decoded;
    try {
        decoded = Base32::decode(text);
    } catch (const TokenError&) {
        return;
    }
    if (Base32::decode(Base32::encode(decoded)) != decoded ||
        Base32::decode(Base32::encode(decoded, false)) != decoded)
        violated("Base32 decode(encode(x)) == x", text);
}

void checkKeyURI(const QString& text) {
    TokenRecord record;
    try {
        record = KeyURI::parse(text);
    } catch (const TokenError&) {
        return;
    }
    try {
        if (KeyURI::parse(KeyURI::format(record)) != record)
            violated("parse(format(parse(x))) == parse(x)", text);
        const auto token = record.toOTPToken();
        if (token->password(0).size() != record.digits ||
            token->passwordForCounter(record.counter).size() != record.digits)
            violated("codes have the record's digit count", text);
    } catch (const TokenError& error) {
        violated(error.what(), text);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    checkBase32(text);
    checkKeyURI(text);
    return 0;
}
