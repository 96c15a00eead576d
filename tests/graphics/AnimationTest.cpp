#include "marlockCompanionCommon/graphics/Layer.h"
#include "marlockCompanionCommon/graphics/ManualAnimationDriver.h"
#include "marlockCompanionCommon/graphics/ShapeLayer.h"
#include "marlockCompanionCommon/graphics/Transaction.h"

#include <gtest/gtest.h>

#include <functional>

using namespace std::chrono_literals;
using graphics::BasicAnimation;
using graphics::Layer;
using graphics::MediaTimingFunction;
using graphics::Transaction;

namespace {

BasicAnimation scroll(double seconds) {
    return BasicAnimation(QStringLiteral("bounds.origin.y"), 0.0, seconds);
}

TEST(Transaction, CompletionRunsOnceAfterEveryAnimationAddedInsideHasEnded) {
    struct Case {
        const char* name;
        std::function<void(Layer&)> inside;                 // inside the transaction
        std::function<void(std::unique_ptr<Layer>&)> after; // right after its commit
        int callsAtCommit;
        std::vector<std::pair<std::chrono::milliseconds, int>> steps; // step, calls after it
    };
    const Case cases[] = {
        {"nothing added: at commit", [](Layer&) {}, nullptr, 1, {{500ms, 1}}},
        {"after the longest of two",
         [](Layer& l) {
             l.addAnimation(scroll(0.1), "a");
             l.addAnimation(BasicAnimation("position.x", 5.0, 0.3), "b");
         },
         nullptr,
         0,
         {{100ms, 0}, {150ms, 0}, {60ms, 1}, {500ms, 1}}},
        {"replacing ends the old one",
         [](Layer& l) { l.addAnimation(scroll(1), "k"); },
         [](std::unique_ptr<Layer>& l) { l->addAnimation(scroll(1), "k"); },
         1,
         {{2000ms, 1}}},
        {"removing ends it",
         [](Layer& l) { l.addAnimation(scroll(1), "k"); },
         [](std::unique_ptr<Layer>& l) { l->removeAllAnimations(); },
         1,
         {}},
        {"destroying the layer ends it",
         [](Layer& l) { l.addAnimation(scroll(1), "k"); },
         [](std::unique_ptr<Layer>& l) { l.reset(); },
         1,
         {}},
    };
    graphics::ManualAnimationDriver clock;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto layer = std::make_unique<Layer>();
        layer->setBounds({0, 100, 10, 10});
        int calls = 0;
        Transaction::begin();
        Transaction::setCompletionBlock([&calls] { ++calls; });
        c.inside(*layer);
        Transaction::commit();
        if (c.after)
            c.after(layer);
        EXPECT_EQ(calls, c.callsAtCommit);
        for (const auto& [step, expected] : c.steps) {
            clock.advanceTime(step);
            EXPECT_EQ(calls, expected) << "after " << step.count() << " ms more";
        }
    }
}

TEST(Transaction, NestedTransactionsShareTheirAnimationsOutwardAndTheirSettingsInward) {
    graphics::ManualAnimationDriver clock;
    Layer layer;
    int outer = 0, inner = 0;
    Transaction::begin();
    Transaction::setCompletionBlock([&outer] { ++outer; });
    Transaction::setDisableActions(true);
    Transaction::setAnimationDuration(0.5);
    {
        graphics::ScopedTransaction nested;
        EXPECT_TRUE(Transaction::disableActions()) << "inherited from the outer transaction";
        EXPECT_EQ(Transaction::animationDuration(), 0.5);
        Transaction::setDisableActions(false);
        EXPECT_FALSE(Transaction::disableActions());
        Transaction::setCompletionBlock([&inner] { ++inner; });
        layer.addAnimation(scroll(0.2), "inner");
    }
    EXPECT_TRUE(Transaction::disableActions()) << "the inner setting ended with it";
    layer.addAnimation(BasicAnimation("position.y", 1.0, 0.4), "outer");
    Transaction::commit();
    EXPECT_FALSE(Transaction::disableActions());
    EXPECT_EQ(Transaction::animationDuration(), 0.25);

    clock.advanceTime(200ms);
    EXPECT_EQ(inner, 1);
    EXPECT_EQ(outer, 0) << "the outer one also waits for the animation added in the nested one";
    clock.advanceTime(200ms);
    EXPECT_EQ(outer, 1);
    EXPECT_EQ(inner, 1);
}

TEST(Layer, AnimationShowsInterpolatedValuesUntilItEndsAtTheModelValue) {
    graphics::ManualAnimationDriver clock;
    Layer layer;
    layer.setBounds({3, 100, 10, 20});
    const auto curve = MediaTimingFunction::easeIn();
    layer.addAnimation(BasicAnimation("bounds.origin.y", 0, 1.0, curve), "scroll");
    EXPECT_EQ(layer.animationKeys(), QStringList{"scroll"});
    EXPECT_EQ(layer.animation("scroll")->duration, 1.0);
    EXPECT_DOUBLE_EQ(layer.presentationValue("bounds.origin.y").toDouble(), 0.0);
    for (int ms : {250, 500, 750}) {
        clock.advanceTime(250ms);
        SCOPED_TRACE(ms);
        EXPECT_NEAR(layer.presentationValue("bounds.origin.y").toDouble(),
                    100 * curve.valueForProgress(ms / 1000.0), 1e-6);
        EXPECT_EQ(layer.presentationValue("bounds.size").toSizeF(), QSizeF(10, 20))
            << "other parts untouched";
        EXPECT_EQ(layer.presentationValue("bounds.origin.x").toDouble(), 3.0);
        EXPECT_EQ(layer.modelValue("bounds.origin.y").toDouble(), 100.0);
    }
    clock.advanceTime(250ms);
    EXPECT_TRUE(layer.animationKeys().isEmpty());
    EXPECT_EQ(layer.presentationValue("bounds").toRectF(), layer.bounds());

    // Without a from-value it starts where the layer is shown.
    layer.addAnimation(BasicAnimation("bounds.origin.y", 40.0, 1.0), "first");
    clock.advanceTime(500ms);
    layer.addAnimation(BasicAnimation("bounds.origin.y", QVariant(), 1.0), "second");
    EXPECT_EQ(layer.animation("second")->fromValue.toDouble(), 70.0);
}

TEST(ShapeLayer, PropertyChangesAnimateImplicitlyUnlessTheTransactionSaysOtherwise) {
    struct Case {
        const char* name;
        std::function<void()> configure; // inside an open transaction; null: none open
        std::optional<double> duration;  // of the implicit animation; absent: none
        MediaTimingFunction timing;
    };
    const Case cases[] = {
        {"outside any transaction", nullptr, 0.25, MediaTimingFunction::defaultTiming()},
        {"actions disabled", [] { Transaction::setDisableActions(true); }, std::nullopt, {}},
        {"transaction's duration and timing",
         [] {
             Transaction::setAnimationDuration(0.5);
             Transaction::setAnimationTimingFunction(MediaTimingFunction::easeIn());
         },
         0.5, MediaTimingFunction::easeIn()},
        {"zero duration", [] { Transaction::setAnimationDuration(0); }, std::nullopt, {}},
    };
    graphics::ManualAnimationDriver clock;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        graphics::ShapeLayer layer;
        if (c.configure) {
            Transaction::begin();
            c.configure();
        }
        layer.setStrokeEnd(0.4);
        if (c.configure)
            Transaction::commit();
        EXPECT_EQ(layer.strokeEnd(), 0.4);
        const auto animation = layer.animation("strokeEnd");
        ASSERT_EQ(animation.has_value(), c.duration.has_value());
        if (!animation)
            continue;
        EXPECT_EQ(animation->duration, *c.duration);
        EXPECT_EQ(animation->timingFunction, c.timing);
        EXPECT_EQ(layer.presentationValue("strokeEnd").toDouble(), 1.0) << "starts from what was shown";
        layer.setStrokeEnd(0.4);
        EXPECT_EQ(layer.animationKeys(), QStringList{"strokeEnd"}) << "an equal value adds nothing";
    }
}

TEST(GraphicsDeathTest, ProgrammingErrorsStopTheProcess) {
    const std::pair<std::function<void()>, const char*> cases[] = {
        {[] { Layer().addAnimation(BasicAnimation("opacity", 1.0), "fade"); },
         "'opacity' is not an animatable key path"},
        {[] { Transaction::commit(); }, "commit without an open transaction"},
        {[] { Transaction::setDisableActions(true); }, "setDisableActions without an open transaction"},
    };
    for (const auto& [operation, message] : cases)
        EXPECT_DEATH(operation(), message);
}

} // namespace
