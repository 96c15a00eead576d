#pragma once

#include "marlockCompanionCommon/Export.h"
#include "marlockCompanionCommon/graphics/BasicAnimation.h"
#include "marlockCompanionCommon/graphics/Image.h"

#include <QColor>
#include <QHash>
#include <QPointF>
#include <QRectF>
#include <QStringList>
#include <QVariant>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QPainter;

namespace marlockCommon {
class KeyedDecoder;
class KeyedEncoder;
} // namespace marlockCommon

namespace graphics {

namespace internal {
class RunningAnimation;
}

// A retained drawing: a rectangle in its superlayer with an optional background colour and
// contents image, and sublayers drawn over it in order. A tree of layers is drawn with
// QPainter by render(); a widget hosting one repaints when its redraw handler is called.
//
// Geometry: position() is the top-left corner of the layer in its superlayer's coordinates;
// bounds() is the layer's own coordinate space (its origin is the point shown at that corner,
// so moving the bounds origin scrolls the contents and sublayers); frame() is the rectangle
// covered in the superlayer, position() plus bounds().size(). The y axis points down unless
// geometryFlipped is set.
//
// Every property has a model value (what was last set) and a presentation value (what is shown
// now: the model value overridden by running animations). Animations run on Qt's animation
// framework, so ManualAnimationDriver steps them by hand in tests. Subclasses with animatable
// properties add implicit animations when those change outside a transaction with actions
// disabled (see Transaction). Main thread only.
//
//   auto root = std::make_unique<graphics::Layer>();
//   root->setFrame({0, 0, 100, 40});
//   auto* child = root->addSublayer(std::make_unique<graphics::Layer>());
//   child->setFrame({10, 10, 20, 20});
//   child->setBackgroundColor(QColor(Qt::red));
//   root->render(painter);
class MCC_EXPORT Layer {
public:
    Layer();
    // Ends the layer's running animations, which may run completion blocks: those run while the
    // layer is being destroyed and must not use it. Subclasses end theirs earlier when theirs may.
    virtual ~Layer();
    Layer(const Layer&) = delete;
    Layer& operator=(const Layer&) = delete;

    QRectF frame() const { return QRectF(position_, bounds_.size()); }
    // Sets position() and the bounds' size; the bounds origin stays.
    void setFrame(const QRectF& frame);
    QPointF position() const { return position_; }
    void setPosition(const QPointF& position);
    QRectF bounds() const { return bounds_; }
    void setBounds(const QRectF& bounds);
    // With the geometry flipped, the layer's drawing and sublayers use a y axis that points up
    // from the bottom of its bounds (the orientation of an unflipped desktop view). Contents
    // images stay upright.
    bool isGeometryFlipped() const { return geometryFlipped_; }
    void setGeometryFlipped(bool flipped);

    // Drawn stretched over the bounds, below the sublayers.
    Image contents() const { return contents_; }
    void setContents(const Image& contents);
    // Clips the contents, the layer's own drawing and its sublayers to its bounds.
    bool masksToBounds() const { return masksToBounds_; }
    void setMasksToBounds(bool masks);
    // Fills the bounds below everything else; none by default.
    std::optional<QColor> backgroundColor() const { return backgroundColor_; }
    virtual void setBackgroundColor(const std::optional<QColor>& color);
    // A hidden layer and its sublayers draw nothing.
    bool isHidden() const { return hidden_; }
    void setHidden(bool hidden);

    Layer* superlayer() const { return superlayer_; }
    std::vector<Layer*> sublayers() const;
    // Appends `layer` (taken from any previous superlayer first is the caller's affair: a layer
    // that has a superlayer cannot be added) and returns it.
    Layer* addSublayer(std::unique_ptr<Layer> layer);
    // Takes this layer out of its superlayer and hands it back (null without a superlayer).
    std::unique_ptr<Layer> removeFromSuperlayer();

    // Values an owner attaches to the layer under keys of its choosing; the layer never reads
    // them. An invalid QVariant removes the key.
    QVariant value(const QString& key) const { return values_.value(key); }
    void setValue(const QVariant& value, const QString& key);

    // Starts `animation` under `key`, replacing (and so ending) one already under that key.
    // The key path must name an animatable property (BasicAnimation); another is a programming
    // error and stops the process. Without a fromValue it starts at the presentation value.
    void addAnimation(const BasicAnimation& animation, const QString& key);
    std::optional<BasicAnimation> animation(const QString& key) const;
    // Keys of the running animations, in the order they were added.
    QStringList animationKeys() const;
    void removeAnimation(const QString& key);
    void removeAllAnimations();

    // The value of an animatable key path as last set, and as shown now; invalid for other
    // paths.
    QVariant modelValue(const QString& keyPath) const;
    QVariant presentationValue(const QString& keyPath) const;
    // A copy of this layer alone (no sublayers, no animations) with the presentation values
    // of now, made by the class's own copy step (makePresentationCopy()).
    std::unique_ptr<Layer> presentationLayer() const;

    // Draws the layer and its sublayers with their presentation values. The painter's origin
    // is the top-left corner of the bounds: the layer's own position plays no part, as for a
    // widget's own layer.
    void render(QPainter& painter) const;

    // Called whenever this layer or a layer below it changes what it shows (a property, a
    // sublayer, a frame of a running animation), so that a host can schedule a repaint. Only
    // the handler of the tree's root is called.
    void setRedrawHandler(std::function<void()> handler) { redrawHandler_ = std::move(handler); }
    // Calls the root's redraw handler.
    void setNeedsRedraw() const;

protected:
    // Draws what the layer itself shows above its contents and below its sublayers, in its
    // bounds coordinates (flipped when the geometry is).
    virtual void drawInContext(QPainter& painter) const;
    // The model value of an animatable property ("bounds", "position"); invalid for others.
    virtual QVariant propertyValue(const QString& property) const;
    // A new layer of this class carrying the properties a presentation copy shows.
    virtual std::unique_ptr<Layer> makePresentationCopy() const;
    // Copies this layer's own properties, with their presentation values, into `copy`.
    void copyLayerProperties(Layer& copy) const;

    // Stores `value` in `storage` when it differs; then, unless actions are disabled, animates
    // `property` from what was shown before (Transaction's duration and timing); asks for a redraw.
    void changeAnimatableProperty(const QString& property, double& storage, double value);

    // Archiving helpers for subclasses that archive themselves: the geometry, hidden and
    // masking flags and background colour under keys beginning with `prefix`. Reading leaves
    // missing or mistyped values alone.
    void encodeLayerProperties(marlockCommon::KeyedEncoder& coder, const QString& prefix) const;
    void decodeLayerProperties(marlockCommon::KeyedDecoder& coder, const QString& prefix);

private:
    void drawLayer(QPainter& painter, const QRectF& bounds) const;
    QRectF presentationBounds() const;
    QPointF presentationPosition() const;

    QPointF position_;
    QRectF bounds_;
    bool geometryFlipped_ = false;
    Image contents_;
    bool masksToBounds_ = false;
    std::optional<QColor> backgroundColor_;
    bool hidden_ = false;
    Layer* superlayer_ = nullptr;
    std::vector<std::unique_ptr<Layer>> sublayers_;
    QHash<QString, QVariant> values_;
    std::vector<std::unique_ptr<internal::RunningAnimation>> animations_;
    std::function<void()> redrawHandler_;
};

} // namespace graphics
