#include "marlockCompanionCommon/graphics/internal/CodedValues.h"

#include <cmath>
#include <mutex>

namespace graphics::internal {
namespace {

using marlockCommon::KeyedDecoder;
using marlockCommon::KeyedEncoder;
using marlockCommon::SecureCoding;

// Generous bounds that still keep absurd values from an archive out of the font machinery.
constexpr double largestFontSize = 10000.0;
constexpr qint64 largestFontWeight = 1000;
constexpr qsizetype longestFamilyName = 1024;
constexpr qsizetype mostFeatures = 64;

std::optional<double> finiteDouble(KeyedDecoder& coder, const QString& key) {
    const auto value = coder.decodeDoubleForKey(key);
    if (value && std::isfinite(*value))
        return value;
    return std::nullopt;
}

template <typename Value> class Coded final : public SecureCoding {
public:
    Coded(QString className, Value value)
        : className_(std::move(className))
        , value_(std::move(value)) {}
    QString className() const override { return className_; }
    void encode(KeyedEncoder& coder) const override;
    const Value& value() const { return value_; }

private:
    QString className_;
    Value value_;
};

template <> void Coded<QColor>::encode(KeyedEncoder& coder) const {
    const QColor rgb = value_.toRgb();
    coder.encodeDouble(rgb.redF(), QStringLiteral("red"));
    coder.encodeDouble(rgb.greenF(), QStringLiteral("green"));
    coder.encodeDouble(rgb.blueF(), QStringLiteral("blue"));
    coder.encodeDouble(rgb.alphaF(), QStringLiteral("alpha"));
}

template <> void Coded<Font>::encode(KeyedEncoder& coder) const {
    coder.encodeString(value_.family(), QStringLiteral("family"));
    coder.encodeString(value_.familyName(), QStringLiteral("familyName"));
    coder.encodeDouble(value_.pointSize(), QStringLiteral("pointSize"));
    coder.encodeInt64(value_.weight(), QStringLiteral("weight"));
    coder.encodeBool(value_.italic(), QStringLiteral("italic"));
    QStringList features;
    for (const FontFeature& feature : value_.features())
        features.append(QString::fromLatin1(feature.tag) + QLatin1Char('=') + QString::number(feature.value));
    coder.encodeString(features.join(QLatin1Char(',')), QStringLiteral("features"));
}

template <> void Coded<MediaTimingFunction>::encode(KeyedEncoder& coder) const {
    coder.encodeDouble(value_.controlPoint1().x(), QStringLiteral("c1x"));
    coder.encodeDouble(value_.controlPoint1().y(), QStringLiteral("c1y"));
    coder.encodeDouble(value_.controlPoint2().x(), QStringLiteral("c2x"));
    coder.encodeDouble(value_.controlPoint2().y(), QStringLiteral("c2y"));
}

std::shared_ptr<SecureCoding> refuse(KeyedDecoder& coder, const QString& what) {
    coder.failWithError(what);
    return nullptr;
}

std::shared_ptr<SecureCoding> decodeColorObject(KeyedDecoder& coder) {
    double components[4];
    const char* keys[4] = {"red", "green", "blue", "alpha"};
    for (int i = 0; i < 4; ++i) {
        const auto component = finiteDouble(coder, QLatin1String(keys[i]));
        if (!component || *component < 0.0 || *component > 1.0)
            return refuse(coder, QStringLiteral("a colour component is missing or outside 0...1"));
        components[i] = *component;
    }
    return std::make_shared<Coded<QColor>>(
        colorClassName,
        QColor::fromRgbF(static_cast<float>(components[0]), static_cast<float>(components[1]),
                         static_cast<float>(components[2]), static_cast<float>(components[3])));
}

std::optional<QList<FontFeature>> parseFeatures(const QString& text) {
    QList<FontFeature> features;
    if (text.isEmpty())
        return features;
    const QStringList settings = text.split(QLatin1Char(','));
    if (settings.size() > mostFeatures)
        return std::nullopt;
    for (const QString& setting : settings) {
        const qsizetype equals = setting.indexOf(QLatin1Char('='));
        const QString tag = setting.left(equals);
        bool numeric = false;
        const uint value = setting.mid(equals + 1).toUInt(&numeric);
        if (equals != 4 || !numeric)
            return std::nullopt;
        for (QChar c : tag) {
            if (c.unicode() < 0x20 || c.unicode() > 0x7e)
                return std::nullopt;
        }
        features.append({tag.toLatin1(), value});
    }
    return features;
}

std::shared_ptr<SecureCoding> decodeFontObject(KeyedDecoder& coder) {
    const auto family = coder.decodeStringForKey(QStringLiteral("family"));
    const auto familyName = coder.decodeStringForKey(QStringLiteral("familyName"));
    const auto size = finiteDouble(coder, QStringLiteral("pointSize"));
    const auto weight = coder.decodeInt64ForKey(QStringLiteral("weight"));
    const auto italic = coder.decodeBoolForKey(QStringLiteral("italic"));
    const auto featureText = coder.decodeStringForKey(QStringLiteral("features"));
    if (!family || !familyName || !size || !weight || !italic || !featureText)
        return refuse(coder, QStringLiteral("a font field is missing or of the wrong type"));
    const auto features = parseFeatures(*featureText);
    if (family->size() > longestFamilyName || familyName->size() > longestFamilyName || *size <= 0 ||
        *size > largestFontSize || *weight < 1 || *weight > largestFontWeight || !features)
        return refuse(coder, QStringLiteral("a font field is out of range"));

    // A system font keeps the platform's name for it through the archive.
    Font font = withFamilyName(Font(*family, *size, static_cast<int>(*weight), *italic), *familyName);
    for (const FontFeature& feature : *features)
        font = font.fontByAddingFeature(feature);
    return std::make_shared<Coded<Font>>(fontClassName, font);
}

std::shared_ptr<SecureCoding> decodeTimingObject(KeyedDecoder& coder) {
    const auto c1x = finiteDouble(coder, QStringLiteral("c1x"));
    const auto c1y = finiteDouble(coder, QStringLiteral("c1y"));
    const auto c2x = finiteDouble(coder, QStringLiteral("c2x"));
    const auto c2y = finiteDouble(coder, QStringLiteral("c2y"));
    if (!c1x || !c1y || !c2x || !c2y || *c1x < 0 || *c1x > 1 || *c2x < 0 || *c2x > 1)
        return refuse(coder, QStringLiteral("a timing function control point is missing or out of range"));
    return std::make_shared<Coded<MediaTimingFunction>>(timingFunctionClassName,
                                                        MediaTimingFunction(*c1x, *c1y, *c2x, *c2y));
}

template <typename Value>
std::optional<Value> decodeNested(KeyedDecoder& coder, const QString& key, const QString& className) {
    if (!coder.containsValueForKey(key))
        return std::nullopt;
    registerCodedValueClasses();
    const auto coded = std::dynamic_pointer_cast<Coded<Value>>(coder.decodeObjectOfClasses({className}, key));
    if (!coded)
        return std::nullopt;
    return coded->value();
}

} // namespace

void registerCodedValueClasses() {
    static std::once_flag once;
    // Each decoder goes in wrapped in a lambda: a plain function pointer would make std::function
    // emit type information for the pointer's type, which the library would then export.
    std::call_once(once, [] {
        marlockCommon::registerSecureCodingClass(
            colorClassName, [](KeyedDecoder& coder) { return decodeColorObject(coder); });
        marlockCommon::registerSecureCodingClass(fontClassName,
                                                 [](KeyedDecoder& coder) { return decodeFontObject(coder); });
        marlockCommon::registerSecureCodingClass(
            timingFunctionClassName, [](KeyedDecoder& coder) { return decodeTimingObject(coder); });
    });
}

void encodeColor(KeyedEncoder& coder, const QString& key, const QColor& color) {
    coder.encodeObject(Coded<QColor>(colorClassName, color), key);
}

void encodeFont(KeyedEncoder& coder, const QString& key, const Font& font) {
    coder.encodeObject(Coded<Font>(fontClassName, font), key);
}

void encodeTimingFunction(KeyedEncoder& coder, const QString& key, const MediaTimingFunction& timing) {
    coder.encodeObject(Coded<MediaTimingFunction>(timingFunctionClassName, timing), key);
}

void encodePoint(KeyedEncoder& coder, const QString& key, const QPointF& point) {
    coder.encodeDouble(point.x(), key + QStringLiteral(".x"));
    coder.encodeDouble(point.y(), key + QStringLiteral(".y"));
}

void encodeRect(KeyedEncoder& coder, const QString& key, const QRectF& rect) {
    encodePoint(coder, key, rect.topLeft());
    coder.encodeDouble(rect.width(), key + QStringLiteral(".width"));
    coder.encodeDouble(rect.height(), key + QStringLiteral(".height"));
}

std::optional<QColor> decodeColor(KeyedDecoder& coder, const QString& key) {
    return decodeNested<QColor>(coder, key, colorClassName);
}

std::optional<Font> decodeFont(KeyedDecoder& coder, const QString& key) {
    return decodeNested<Font>(coder, key, fontClassName);
}

std::optional<MediaTimingFunction> decodeTimingFunction(KeyedDecoder& coder, const QString& key) {
    return decodeNested<MediaTimingFunction>(coder, key, timingFunctionClassName);
}

std::optional<QPointF> decodePoint(KeyedDecoder& coder, const QString& key) {
    const auto x = finiteDouble(coder, key + QStringLiteral(".x"));
    const auto y = finiteDouble(coder, key + QStringLiteral(".y"));
    if (!x || !y)
        return std::nullopt;
    return QPointF(*x, *y);
}

std::optional<QRectF> decodeRect(KeyedDecoder& coder, const QString& key) {
    const auto origin = decodePoint(coder, key);
    const auto width = finiteDouble(coder, key + QStringLiteral(".width"));
    const auto height = finiteDouble(coder, key + QStringLiteral(".height"));
    if (!origin || !width || !height || *width < 0 || *height < 0)
        return std::nullopt;
    return QRectF(*origin, QSizeF(*width, *height));
}

} // namespace graphics::internal
