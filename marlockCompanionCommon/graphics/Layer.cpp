#include "marlockCompanionCommon/graphics/Layer.h"

#include "marlockCompanionCommon/graphics/Transaction.h"
#include "marlockCompanionCommon/graphics/internal/CodedValues.h"
#include "marlockCompanionCommon/graphics/internal/KeyPath.h"
#include "marlockCompanionCommon/graphics/internal/RunningAnimation.h"
#include "marlockCompanionCommon/platform/runtime/FatalError.h"

#include <QPainter>

#include <algorithm>
#include <cmath>

namespace graphics {

Layer::Layer() = default;

Layer::~Layer() {
    // Ending the animations may run completion blocks; they find this layer without animations.
    auto ending = std::move(animations_);
    animations_.clear();
}

void Layer::setFrame(const QRectF& frame) {
    position_ = frame.topLeft();
    bounds_.setSize(frame.size());
    setNeedsRedraw();
}

void Layer::setPosition(const QPointF& position) {
    position_ = position;
    setNeedsRedraw();
}

void Layer::setBounds(const QRectF& bounds) {
    bounds_ = bounds;
    setNeedsRedraw();
}

void Layer::setGeometryFlipped(bool flipped) {
    geometryFlipped_ = flipped;
    setNeedsRedraw();
}

void Layer::setContents(const Image& contents) {
    contents_ = contents;
    setNeedsRedraw();
}

void Layer::setMasksToBounds(bool masks) {
    masksToBounds_ = masks;
    setNeedsRedraw();
}

void Layer::setBackgroundColor(const std::optional<QColor>& color) {
    backgroundColor_ = color;
    setNeedsRedraw();
}

void Layer::setHidden(bool hidden) {
    hidden_ = hidden;
    setNeedsRedraw();
}

std::vector<Layer*> Layer::sublayers() const {
    std::vector<Layer*> layers;
    layers.reserve(sublayers_.size());
    for (const auto& layer : sublayers_)
        layers.push_back(layer.get());
    return layers;
}

Layer* Layer::addSublayer(std::unique_ptr<Layer> layer) {
    Layer* added = layer.get();
    added->superlayer_ = this;
    sublayers_.push_back(std::move(layer));
    setNeedsRedraw();
    return added;
}

std::unique_ptr<Layer> Layer::removeFromSuperlayer() {
    Layer* parent = superlayer_;
    if (!parent)
        return nullptr;
    auto& siblings = parent->sublayers_;
    const auto at = std::find_if(siblings.begin(), siblings.end(),
                                 [this](const auto& layer) { return layer.get() == this; });
    std::unique_ptr<Layer> self = std::move(*at);
    siblings.erase(at);
    superlayer_ = nullptr;
    parent->setNeedsRedraw();
    return self;
}

void Layer::setValue(const QVariant& value, const QString& key) {
    if (value.isValid())
        values_.insert(key, value);
    else
        values_.remove(key);
}

void Layer::addAnimation(const BasicAnimation& animation, const QString& key) {
    const auto [property, subPath] = internal::splitKeyPath(animation.keyPath);
    const QVariant to = internal::partOf(propertyValue(property), subPath);
    if (!to.isValid())
        platform::fatalError(
            QStringLiteral("Layer::addAnimation: '%1' is not an animatable key path").arg(animation.keyPath));
    QVariant from =
        animation.fromValue.isValid() ? animation.fromValue : presentationValue(animation.keyPath);
    if (!from.convert(to.metaType()))
        platform::fatalError(QStringLiteral("Layer::addAnimation: the from-value of '%1' is not a %2")
                                 .arg(animation.keyPath, QLatin1String(to.metaType().name())));
    BasicAnimation added = animation;
    added.fromValue = from;
    if (added.duration <= 0)
        added.duration = Transaction::animationDuration();

    removeAnimation(key);
    auto running = std::make_unique<internal::RunningAnimation>(key, added, from, to);
    internal::RunningAnimation* raw = running.get();
    QVariantAnimation* driver = raw->driver();
    QObject::connect(driver, &QVariantAnimation::valueChanged, driver, [this] { setNeedsRedraw(); });
    // Ends here rather than in a member function: a member taking the private RunningAnimation
    // type would be exported with the class.
    QObject::connect(driver, &QAbstractAnimation::finished, driver, [this, raw] {
        const auto at = std::find_if(animations_.begin(), animations_.end(),
                                     [raw](const auto& entry) { return entry.get() == raw; });
        if (at == animations_.end())
            return;
        std::unique_ptr<internal::RunningAnimation> ended = std::move(*at);
        animations_.erase(at);
        ended->releaseDriverLater();
        setNeedsRedraw();
        // Last: the completion block this may run is free to destroy the layer.
        ended.reset();
    });
    animations_.push_back(std::move(running));
    driver->start();
    setNeedsRedraw();
}

std::optional<BasicAnimation> Layer::animation(const QString& key) const {
    for (const auto& running : animations_) {
        if (running->key() == key)
            return running->animation();
    }
    return std::nullopt;
}

QStringList Layer::animationKeys() const {
    QStringList keys;
    for (const auto& running : animations_)
        keys.append(running->key());
    return keys;
}

void Layer::removeAnimation(const QString& key) {
    const auto at = std::find_if(animations_.begin(), animations_.end(),
                                 [&key](const auto& animation) { return animation->key() == key; });
    if (at == animations_.end())
        return;
    std::unique_ptr<internal::RunningAnimation> removed = std::move(*at);
    animations_.erase(at);
    setNeedsRedraw();
    removed.reset();
}

void Layer::removeAllAnimations() {
    if (animations_.empty())
        return;
    auto removed = std::move(animations_);
    animations_.clear();
    setNeedsRedraw();
    removed.clear();
}

QVariant Layer::modelValue(const QString& keyPath) const {
    const auto [property, subPath] = internal::splitKeyPath(keyPath);
    return internal::partOf(propertyValue(property), subPath);
}

QVariant Layer::presentationValue(const QString& keyPath) const {
    const auto [property, subPath] = internal::splitKeyPath(keyPath);
    QVariant value = propertyValue(property);
    if (!value.isValid())
        return {};
    for (const auto& running : animations_) {
        if (running->property() == property)
            value = internal::withPart(value, running->subPath(), running->currentValue());
    }
    return internal::partOf(value, subPath);
}

QRectF Layer::presentationBounds() const {
    return animations_.empty() ? bounds_ : presentationValue(QStringLiteral("bounds")).toRectF();
}

QPointF Layer::presentationPosition() const {
    return animations_.empty() ? position_ : presentationValue(QStringLiteral("position")).toPointF();
}

std::unique_ptr<Layer> Layer::presentationLayer() const {
    return makePresentationCopy();
}

std::unique_ptr<Layer> Layer::makePresentationCopy() const {
    auto copy = std::make_unique<Layer>();
    copyLayerProperties(*copy);
    return copy;
}

void Layer::copyLayerProperties(Layer& copy) const {
    copy.position_ = presentationPosition();
    copy.bounds_ = presentationBounds();
    copy.geometryFlipped_ = geometryFlipped_;
    copy.contents_ = contents_;
    copy.masksToBounds_ = masksToBounds_;
    copy.backgroundColor_ = backgroundColor_;
    copy.hidden_ = hidden_;
    copy.values_ = values_;
}

QVariant Layer::propertyValue(const QString& property) const {
    if (property == u"bounds")
        return bounds_;
    if (property == u"position")
        return position_;
    return {};
}

void Layer::changeAnimatableProperty(const QString& property, double& storage, double value) {
    if (storage == value)
        return;
    const QVariant shown = presentationValue(property);
    storage = value;
    const double duration = Transaction::animationDuration();
    if (!Transaction::disableActions() && duration > 0) {
        addAnimation(BasicAnimation(property, shown, duration, Transaction::animationTimingFunction()),
                     property);
    }
    setNeedsRedraw();
}

void Layer::setNeedsRedraw() const {
    const Layer* root = this;
    while (root->superlayer_)
        root = root->superlayer_;
    if (root->redrawHandler_)
        root->redrawHandler_();
}

void Layer::render(QPainter& painter) const {
    if (hidden_)
        return;
    const QRectF bounds = presentationBounds();
    painter.save();
    painter.translate(-bounds.topLeft());
    drawLayer(painter, bounds);
    painter.restore();
}

void Layer::drawLayer(QPainter& painter, const QRectF& bounds) const {
    if (masksToBounds_)
        painter.setClipRect(bounds, Qt::IntersectClip);
    if (backgroundColor_)
        painter.fillRect(bounds, *backgroundColor_);
    if (!contents_.isNull()) {
        // The bitmap is drawn for the resolution it lands on (the device's pixel ratio and any
        // scaling of the painter), so glyphs stay sharp at any scale.
        const QTransform toDevice = painter.deviceTransform();
        const qreal ratio =
            std::max(std::hypot(toDevice.m11(), toDevice.m12()), std::hypot(toDevice.m21(), toDevice.m22()));
        const QImage bitmap = contents_.rendition(ratio);
        if (!bitmap.isNull())
            painter.drawImage(bounds, bitmap);
    }
    if (geometryFlipped_) {
        painter.translate(0, bounds.top() + bounds.bottom());
        painter.scale(1, -1);
    }
    drawInContext(painter);
    for (const auto& sublayer : sublayers_) {
        if (sublayer->hidden_)
            continue;
        const QRectF subBounds = sublayer->presentationBounds();
        painter.save();
        painter.translate(sublayer->presentationPosition() - subBounds.topLeft());
        sublayer->drawLayer(painter, subBounds);
        painter.restore();
    }
}

void Layer::drawInContext(QPainter&) const {}

void Layer::encodeLayerProperties(marlockCommon::KeyedEncoder& coder, const QString& prefix) const {
    internal::encodeRect(coder, prefix + QStringLiteral("bounds"), bounds_);
    internal::encodePoint(coder, prefix + QStringLiteral("position"), position_);
    coder.encodeBool(hidden_, prefix + QStringLiteral("hidden"));
    coder.encodeBool(masksToBounds_, prefix + QStringLiteral("masksToBounds"));
    coder.encodeBool(geometryFlipped_, prefix + QStringLiteral("geometryFlipped"));
    if (backgroundColor_)
        internal::encodeColor(coder, prefix + QStringLiteral("backgroundColor"), *backgroundColor_);
}

void Layer::decodeLayerProperties(marlockCommon::KeyedDecoder& coder, const QString& prefix) {
    if (const auto bounds = internal::decodeRect(coder, prefix + QStringLiteral("bounds")))
        bounds_ = *bounds;
    if (const auto position = internal::decodePoint(coder, prefix + QStringLiteral("position")))
        position_ = *position;
    hidden_ = coder.decodeBoolForKey(prefix + QStringLiteral("hidden")).value_or(hidden_);
    masksToBounds_ =
        coder.decodeBoolForKey(prefix + QStringLiteral("masksToBounds")).value_or(masksToBounds_);
    geometryFlipped_ =
        coder.decodeBoolForKey(prefix + QStringLiteral("geometryFlipped")).value_or(geometryFlipped_);
    if (const auto color = internal::decodeColor(coder, prefix + QStringLiteral("backgroundColor")))
        backgroundColor_ = *color;
}

} // namespace graphics
