#include "marlockCompanionCommon/graphics/ManualAnimationDriver.h"

#include <QCoreApplication>

namespace graphics {

ManualAnimationDriver::ManualAnimationDriver(QObject* parent)
    : QAnimationDriver(parent) {
    install();
}

ManualAnimationDriver::~ManualAnimationDriver() {
    uninstall();
}

void ManualAnimationDriver::start() {
    // Qt adds the time it kept while the driver was stopped to what elapsed() says, so each run
    // of the driver counts from zero.
    elapsed_ = 0;
    QAnimationDriver::start();
}

void ManualAnimationDriver::advanceTime(std::chrono::milliseconds step) {
    // Qt starts new animations in two queued calls, the second queued by the first.
    for (int i = 0; i < 2; ++i)
        QCoreApplication::sendPostedEvents(nullptr, QEvent::MetaCall);
    elapsed_ += step.count();
    // Advancing a stopped driver would start it again with no animation to run, out of step
    // with Qt's own bookkeeping.
    if (isRunning())
        advance();
}

} // namespace graphics
