#include "marlockCompanionCommon/graphics/ManualAnimationDriver.h"

#include <QAbstractAnimation>
#include <QCoreApplication>

namespace graphics {
namespace {

// Runs for ever and does nothing: while it runs, Qt never finds the thread without animations.
class KeepAlive final : public QAbstractAnimation {
public:
    int duration() const override { return -1; }

protected:
    void updateCurrentTime(int) override {}
};

void deliverQueuedCalls() {
    // Qt starts new animations in two queued calls, the second queued by the first.
    for (int i = 0; i < 2; ++i)
        QCoreApplication::sendPostedEvents(nullptr, QEvent::MetaCall);
}

} // namespace

ManualAnimationDriver::ManualAnimationDriver(QObject* parent)
    : QAnimationDriver(parent)
    , keepAlive_(std::make_unique<KeepAlive>()) {
    install();
    // Qt's animation timer reads the wall clock whenever it (re)starts a driver, and stops the
    // driver whenever the thread runs out of animations. An animation that never ends keeps this
    // driver running from here on, so every later step moves animations by exactly its length;
    // the wall-clock time read now goes to that animation alone.
    keepAlive_->start();
    deliverQueuedCalls();
    if (isRunning())
        advance();
}

ManualAnimationDriver::~ManualAnimationDriver() {
    keepAlive_->stop();
    uninstall();
}

void ManualAnimationDriver::start() {
    // Qt adds the time it kept while the driver was stopped to what elapsed() says, so each run
    // of the driver counts from zero.
    elapsed_ = 0;
    QAnimationDriver::start();
}

void ManualAnimationDriver::advanceTime(std::chrono::milliseconds step) {
    deliverQueuedCalls();
    elapsed_ += step.count();
    if (isRunning())
        advance();
}

} // namespace graphics
