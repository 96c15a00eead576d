#include "InMemoryCoder.h"

#include "marlockCommon/OTPToken.h"
#include "marlockCommon/TokenError.h"

#include <gtest/gtest.h>

using namespace marlockCommon;
using testsupport::CodedEntry;
using testsupport::InMemoryDecoder;
using testsupport::InMemoryEncoder;

namespace {

// The counter is above the signed range: it is archived as its bits.
const TokenRecord sample{.type = OTPType::hotp,
                         .issuer = "Example",
                         .account = "alice@example.org",
                         .secret = "12345678901234567890",
                         .algorithm = OTPAlgorithm::sha256,
                         .digits = 8,
                         .period = 60,
                         .counter = 0x8000000000000001ull};

// An object holding another, as a token list or a folder of tokens would.
class Holder final : public SecureCoding {
public:
    std::shared_ptr<OTPToken> token;
    QString className() const override { return QStringLiteral("Holder"); }
    void encode(KeyedEncoder& coder) const override { coder.encodeObject(*token, QStringLiteral("token")); }
};

} // namespace

TEST(OTPTokenCoding, ArchivesEveryFieldAndDecodesItBack) {
    const auto entry = InMemoryEncoder::archive(*sample.toOTPToken());
    EXPECT_EQ(entry->className, QStringLiteral("OTPToken"));
    EXPECT_EQ(entry->values.keys(), (QStringList{"account", "algorithm", "counter", "digits", "issuer",
                                                 "period", "secret", "type"}));
    InMemoryDecoder decoder(*entry);
    const auto decoded = OTPToken::decode(decoder);
    ASSERT_TRUE(decoded);
    EXPECT_FALSE(decoder.error());
    EXPECT_EQ(decoded->toTokenRecord(), sample);
}

TEST(OTPTokenCoding, RefusesEntriesWithMissingOrWrongFields) {
    const auto good = InMemoryEncoder::archive(*sample.toOTPToken());
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
    const std::pair<const char*, testsupport::CodedValue> wrong[] = {
        {"secret", QStringLiteral("GEZDGNBV")}, {"digits", 6.0},
        {"issuer", QByteArray("Example")},      {"type", QStringLiteral("motp")},
        {"algorithm", QStringLiteral("MD5")},   {"period", qint64(1) << 40}};
    for (const auto& [key, value] : wrong)
        EXPECT_FALSE(decodeAltered([&](CodedEntry& e) { e.values[key] = value; })) << key;
    // Values a code can't be computed from still decode; computing the code reports them.
    const auto odd = decodeAltered([](CodedEntry& e) { e.values["digits"] = qint64(12); });
    ASSERT_TRUE(odd);
    EXPECT_THROW((void)odd->password(59), TokenError);
}

TEST(OTPTokenCoding, NestedObjectsDecodeOnlyWhenTheirClassIsAllowedAndRegistered) {
    Holder holder;
    holder.token = sample.toOTPToken();
    const auto entry = InMemoryEncoder::archive(holder);

    InMemoryDecoder allowed(*entry);
    const auto token =
        std::dynamic_pointer_cast<OTPToken>(allowed.decodeObjectOfClasses({"OTPToken"}, "token"));
    ASSERT_TRUE(token);
    EXPECT_EQ(token->toTokenRecord(), sample);
    InMemoryDecoder refused(*entry);
    EXPECT_FALSE(refused.decodeObjectOfClasses({"NSArray"}, "token"));
    EXPECT_TRUE(refused.error());

    EXPECT_TRUE(secureCodingClass("OTPToken"));
    EXPECT_FALSE(secureCodingClass("Holder"));
    registerSecureCodingClass("Holder", [](KeyedDecoder& coder) {
        auto made = std::make_shared<Holder>();
        made->token = std::dynamic_pointer_cast<OTPToken>(coder.decodeObjectOfClasses({"OTPToken"}, "token"));
        return made->token ? made : nullptr;
    });
    const auto decode = secureCodingClass("Holder");
    ASSERT_TRUE(decode);
    InMemoryDecoder decoder(*entry);
    const auto decoded = std::dynamic_pointer_cast<Holder>((*decode)(decoder));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->token->toTokenRecord(), sample);
}
