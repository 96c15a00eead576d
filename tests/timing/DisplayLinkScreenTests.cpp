#include "marlockCompanionCommon/timing/OTPDisplayLink.h"

#include <QGuiApplication>
#include <QScreen>
#include <qpa/qwindowsysteminterface.h>

#include <gtest/gtest.h>

namespace {

// The offscreen screen reports 60 Hz, which is also the link's fallback; the screen is given
// other rates the way a platform plugin reports a mode change, so a link that ignores the
// screen cannot pass.
TEST(OTPDisplayLink, TicksAtThePrimaryScreensRefreshRate) {
    QScreen* screen = QGuiApplication::primaryScreen();
    ASSERT_NE(screen, nullptr);
    for (const double rate : {75.0, 144.0, 59.94}) {
        QWindowSystemInterface::handleScreenRefreshRateChange(screen, rate);
        QWindowSystemInterface::flushWindowSystemEvents();
        ASSERT_EQ(screen->refreshRate(), rate);
        OTPDisplayLink link;
        ASSERT_NE(link.displayLink(), nullptr);
        EXPECT_EQ(link.displayLink()->nominalFramesPerSecond(), rate);
    }
}

} // namespace
