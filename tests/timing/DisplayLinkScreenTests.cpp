#include "marlockCompanionCommon/timing/OTPDisplayLink.h"

#include <QGuiApplication>
#include <QScreen>

#include <gtest/gtest.h>

namespace {

TEST(OTPDisplayLink, TicksAtThePrimaryScreensRefreshRate) {
    const QScreen* screen = QGuiApplication::primaryScreen();
    ASSERT_NE(screen, nullptr);
    OTPDisplayLink link;
    ASSERT_NE(link.displayLink(), nullptr);
    EXPECT_EQ(link.displayLink()->nominalFramesPerSecond(), screen->refreshRate());
}

} // namespace
