#pragma once

#include "marlockCompanionCommon/graphics/BasicAnimation.h"
#include "marlockCompanionCommon/graphics/internal/CompletionGroup.h"

#include <QVariantAnimation>

#include <memory>

namespace graphics::internal {

// One animation added to a layer: the animation as added, the Qt animation that interpolates
// it, and the membership in the completion groups of the transactions open when it was added.
// Destroying it stops the Qt animation and tells those groups the animation has ended.
class RunningAnimation {
public:
    RunningAnimation(QString key, const BasicAnimation& animation, const QVariant& from, const QVariant& to);
    ~RunningAnimation();
    RunningAnimation(const RunningAnimation&) = delete;
    RunningAnimation& operator=(const RunningAnimation&) = delete;

    const QString& key() const { return key_; }
    const BasicAnimation& animation() const { return animation_; }
    // The animated property ("bounds") and the part of it ("origin.y", or empty).
    const QString& property() const { return property_; }
    const QString& subPath() const { return subPath_; }

    QVariantAnimation* driver() const { return driver_.get(); }
    QVariant currentValue() const { return driver_ ? driver_->currentValue() : QVariant(); }

    // For an animation ending inside a signal of its own Qt animation, which must outlive the
    // signal: hands that object to the event loop to delete.
    void releaseDriverLater();

private:
    QString key_;
    BasicAnimation animation_;
    QString property_;
    QString subPath_;
    std::unique_ptr<QVariantAnimation> driver_;
    CompletionToken token_;
};

} // namespace graphics::internal
