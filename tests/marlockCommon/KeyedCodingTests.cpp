#include "InMemoryCoder.h"

#include "marlockCommon/OTPToken.h"
#include "marlockCommon/TokenError.h"

#include <gtest/gtest.h>

using namespace marlockCommon;
using testsupport::CodedEntry;
using testsupport::InMemoryDecoder;
using testsupport::InMemoryEncoder;

namespace {

TokenRecord sampleRecord() {
    TokenRecord record;
    record.type = OTPType::hotp;
    record.issuer = QStringLiteral("Example");
    record.account = QStringLiteral("alice@example.org");
    record.secret = "12345678901234567890";
    record.algorithm = OTPAlgorithm::sha256;
    record.digits = 8;
    record.period = 60;
    record.counter = 0x8000000000000001ull; // above the signed range: archived as its bits
    return record;
}

// An object holding another, as a token list or a folder of tokens would.
class Holder final : public SecureCoding {
public:
    std::shared_ptr<OTPToken> token;
    QString className() const override { return QStringLiteral("Holder"); }
    void encode(KeyedEncoder& coder) const override { coder.encodeObject(*token, QStringLiteral("token")); }
};

} // namespace

TEST(OTPTokenCoding, ArchivesEveryFieldAndDecodesItBack) {
    const auto entry = InMemoryEncoder::archive(*sampleRecord().toOTPToken());
    EXPECT_EQ(entry->className, QStringLiteral("OTPToken"));
    EXPECT_EQ(entry->values.keys(), (QStringList{"account", "algorithm", "counter", "digits", "issuer",
                                                 "period", "secret", "type"}));
    InMemoryDecoder decoder(*entry);
    const auto decoded = OTPToken::decode(decoder);
    ASSERT_TRUE(decoded);
    EXPECT_FALSE(decoder.error());
    EXPECT_EQ(decoded->toTokenRecord(), sampleRecord());
}

TEST(OTPTokenCoding, RefusesEntriesWithMissingOrWrongFields) {
    const auto good = InMemoryEncoder::archive(*sampleRecord().toOTPToken());
    auto decodeAltered = [&](const std::function<void(CodedEntry&)>& alter) {
        CodedEntry entry = *good;
        alter(entry);
        InMemoryDecoder decoder(entry);
        const auto token = OTPToken::decode(decoder);
        EXPECT_EQ(token == nullptr, decoder.error().has_value());
        return token;
    };
    for (const QString& key : good->values.keys())
        EXPECT_FALSE(decodeAltered([&](CodedEntry& e) { e.values.remove(key); })) << key.toStdString();
    EXPECT_FALSE(decodeAltered([](CodedEntry& e) { e.values["secret"] = QStringLiteral("GEZDGNBV"); }));
    EXPECT_FALSE(decodeAltered([](CodedEntry& e) { e.values["digits"] = 6.0; }));
    EXPECT_FALSE(decodeAltered([](CodedEntry& e) { e.values["issuer"] = QByteArray("Example"); }));
    EXPECT_FALSE(decodeAltered([](CodedEntry& e) { e.values["type"] = QStringLiteral("motp"); }));
    EXPECT_FALSE(decodeAltered([](CodedEntry& e) { e.values["algorithm"] = QStringLiteral("MD5"); }));
    EXPECT_FALSE(decodeAltered([](CodedEntry& e) { e.values["period"] = qint64(1) << 40; }));
    // Values a code can't be computed from still decode; computing the code reports them.
    const auto odd = decodeAltered([](CodedEntry& e) { e.values["digits"] = qint64(12); });
    ASSERT_TRUE(odd);
    EXPECT_THROW((void)odd->password(59), TokenError);
}

TEST(OTPTokenCoding, NestedTokensDecodeOnlyWhenTheirClassIsAllowed) {
    Holder holder;
    holder.token = sampleRecord().toOTPToken();
    const auto entry = InMemoryEncoder::archive(holder);

    InMemoryDecoder allowed(*entry);
    const auto object = allowed.decodeObjectOfClasses({QStringLiteral("OTPToken")}, QStringLiteral("token"));
    const auto token = std::dynamic_pointer_cast<OTPToken>(object);
    ASSERT_TRUE(token);
    EXPECT_EQ(token->toTokenRecord(), sampleRecord());

    InMemoryDecoder refused(*entry);
    EXPECT_FALSE(refused.decodeObjectOfClasses({QStringLiteral("NSArray")}, QStringLiteral("token")));
    EXPECT_TRUE(refused.error());
}

TEST(OTPTokenCoding, TheClassRegistryKnowsOTPTokenAndTakesNewClasses) {
    EXPECT_TRUE(secureCodingClass(QStringLiteral("OTPToken")));
    EXPECT_FALSE(secureCodingClass(QStringLiteral("Holder")));
    registerSecureCodingClass(QStringLiteral("Holder"), [](KeyedDecoder& coder) {
        auto holder = std::make_shared<Holder>();
        holder->token = std::dynamic_pointer_cast<OTPToken>(
            coder.decodeObjectOfClasses({"OTPToken"}, QStringLiteral("token")));
        return holder->token ? holder : nullptr;
    });
    const auto decode = secureCodingClass(QStringLiteral("Holder"));
    ASSERT_TRUE(decode);
    Holder holder;
    holder.token = sampleRecord().toOTPToken();
    const auto entry = InMemoryEncoder::archive(holder);
    InMemoryDecoder decoder(*entry);
    const auto decoded = std::dynamic_pointer_cast<Holder>((*decode)(decoder));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->token->toTokenRecord(), sampleRecord());
}
