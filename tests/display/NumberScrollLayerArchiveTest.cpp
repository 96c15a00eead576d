#include "marlockCompanionCommon/display/NumberScrollLayer.h"
#include "marlockCompanionCommon/keychain/KeyedArchiver.h"
#include "marlockCompanionCommon/keychain/KeyedUnarchiver.h"

#include <gtest/gtest.h>

#include <functional>

using marlockCommon::KeyedEncoder;
using marlockCommon::SecureCoding;

namespace {

QByteArray archive(const std::shared_ptr<SecureCoding>& root) {
    return platform::KeyedArchiver::archivedData(QVariant::fromValue(root), true);
}

std::shared_ptr<NumberScrollLayer> unarchive(const QByteArray& data) {
    const QVariant root = platform::KeyedUnarchiver::unarchivedObjectOfClasses({"NumberScrollLayer"}, data);
    return std::dynamic_pointer_cast<NumberScrollLayer>(root.value<std::shared_ptr<SecureCoding>>());
}

// An archive entry of any class, written by hand.
class Forged final : public SecureCoding {
public:
    Forged(QString className, std::function<void(KeyedEncoder&)> write)
        : className_(std::move(className))
        , write_(std::move(write)) {}
    QString className() const override { return className_; }
    void encode(KeyedEncoder& coder) const override { write_(coder); }

private:
    QString className_;
    std::function<void(KeyedEncoder&)> write_;
};

TEST(NumberScrollLayerArchive, RoundTripKeepsTheArchivedPropertiesAndLaysTheTextOut) {
    auto original = std::make_shared<NumberScrollLayer>();
    original->setFont(graphics::Font("Inter", 20));
    original->setTextColor(QColor(10, 20, 30));
    original->setAnimationCurve(graphics::MediaTimingFunction::easeOut());
    original->setAnimationDuration(0.5);
    original->setAnimationDirection(NumberScrollLayer::AnimationDirection::down);
    original->setFrame({1, 2, 30, 40});
    original->setBackgroundColor(QColor(Qt::white));
    original->setText("12:34");

    const QByteArray data = archive(original);
    for (const char* key : {"NumberScrollLayer.font", "NumberScrollLayer.textColor", "NumberScrollLayer.text",
                            "NumberScrollLayer.animationCurve", "NumberScrollLayer.animationDuration"})
        EXPECT_TRUE(data.contains(key)) << key;

    const auto decoded = unarchive(data);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->font(), original->font());
    EXPECT_EQ(decoded->textColor(), original->textColor());
    EXPECT_EQ(decoded->text(), "12:34");
    EXPECT_EQ(decoded->animationCurve(), graphics::MediaTimingFunction::easeOut());
    EXPECT_EQ(decoded->animationDuration(), 0.5);
    EXPECT_EQ(decoded->frame(), original->frame());
    EXPECT_EQ(decoded->backgroundColor(), QColor(Qt::white));
    EXPECT_EQ(decoded->contentLayers().size(), 5u);
    EXPECT_EQ(decoded->boundingSize(), original->boundingSize());
    EXPECT_EQ(decoded->animationDirection(), NumberScrollLayer::AnimationDirection::up) << "not archived";
}

TEST(NumberScrollLayerArchive, MistypedValuesAreIgnoredAndForeignObjectsRefused) {
    struct Case {
        const char* name;
        std::function<void(KeyedEncoder&)> write;
        bool decodes;
    };
    const Case cases[] = {
        {"nothing: initial values", [](KeyedEncoder&) {}, true},
        {"a number as text, a string as duration",
         [](KeyedEncoder& c) {
             c.encodeDouble(5, "NumberScrollLayer.text");
             c.encodeString("1", "NumberScrollLayer.animationDuration");
         },
         true},
        {"a colour where the font belongs",
         [](KeyedEncoder& c) {
             c.encodeObject(Forged("graphics.Color",
                                   [](KeyedEncoder& color) {
                                       for (const char* key : {"red", "green", "blue", "alpha"})
                                           color.encodeDouble(1, key);
                                   }),
                            "NumberScrollLayer.font");
         },
         false},
        {"a colour component out of range",
         [](KeyedEncoder& c) {
             c.encodeObject(Forged("graphics.Color",
                                   [](KeyedEncoder& color) {
                                       for (const char* key : {"green", "blue", "alpha"})
                                           color.encodeDouble(1, key);
                                       color.encodeDouble(2, "red");
                                   }),
                            "NumberScrollLayer.textColor");
         },
         false},
        {"an overlong text",
         [](KeyedEncoder& c) { c.encodeString(QString(5000, '1'), "NumberScrollLayer.text"); }, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const QByteArray data = archive(std::make_shared<Forged>("NumberScrollLayer", c.write));
        if (!c.decodes) {
            EXPECT_THROW(unarchive(data), platform::ArchiveException);
            continue;
        }
        const auto decoded = unarchive(data);
        ASSERT_TRUE(decoded);
        EXPECT_EQ(decoded->text(), "");
        EXPECT_EQ(decoded->animationDuration(), 1.0);
    }
}

} // namespace
