#include "marlockCompanionCommon/notifications/PLXNotificationCenterPrefixWrapper.h"
#include "marlockCompanionCommon/platform/runtime/Identity.h"
#include "tests/notifications/NotificationRecorder.h"
#include "tests/notifications/NotificationTestSupport.h"
#include "tests/support/TestSupport.h"

using namespace notificationtests;
using testsupport::waitUntil;

namespace {

class PrefixWrapperTest : public ::testing::Test {
protected:
    LocalDarwinNotifyCenter service;
    std::shared_ptr<PLXDarwinNotificationCenter> center =
        std::make_shared<PLXDarwinNotificationCenter>(&service);
    PLXNotificationCenterPrefixWrapper wrapper{center, QStringLiteral("..a.b..")};
    NotificationRecorder recorder;
};

TEST_F(PrefixWrapperTest, PrefixLosesOuterDotsAndEveryNameGainsIt) {
    EXPECT_EQ(wrapper.prefix(), "a.b");
    EXPECT_EQ(wrapper.prefixedName(QStringLiteral("x")), "a.b.x");
    EXPECT_EQ(wrapper.prefixedName(std::nullopt), "a.b.(null)");
    EXPECT_EQ(PLXNotificationCenterPrefixWrapper(center, QStringLiteral("plain")).prefix(), "plain");
    EXPECT_EQ(PLXNotificationCenterPrefixWrapper(center, QStringLiteral("...")).prefix(), "");
    EXPECT_EQ(wrapper.notificationCenter(), center);
}

TEST_F(PrefixWrapperTest, PostsAndObservationsUseTheFullName) {
    QStringList onCenter, onWrapper;
    auto raw = center->addObserverForName("a.b.x", nullptr, [&](const auto& n) { onCenter << n.name; });
    auto wrapped = wrapper.addObserverForName("x", nullptr, [&](const auto& n) { onWrapper << n.name; });
    wrapper.addObserver(&recorder, "first", "x");
    EXPECT_EQ(center->registeredNotificationNames(), QStringList{"a.b.x"});

    QObject sender;
    wrapper.postNotificationName("x");
    wrapper.postNotification(platform::Notification{"x", &sender, {{"key", 1}}});
    ASSERT_TRUE(waitUntil(
        [&] { return onCenter.size() == 2 && onWrapper.size() == 2 && recorder.calls.size() == 2; }));
    EXPECT_EQ(onCenter, QStringList({"a.b.x", "a.b.x"}));
    EXPECT_EQ(onWrapper, QStringList({"a.b.x", "a.b.x"}));
    EXPECT_EQ(recorder.calls, QStringList({"first:a.b.x", "first:a.b.x"}));

    EXPECT_EQ(wrapped->parent(), nullptr);
    wrapper.removeObserver(wrapped.get(), QStringLiteral("x"));
    EXPECT_EQ(center->retainedObserverCount(), 1) << "only the raw token is left";
}

TEST_F(PrefixWrapperTest, RemovalWithoutANameRemovesNothingButRemovalOfTheObserverReachesEveryName) {
    wrapper.addObserver(&recorder, "first", "x");
    center->addObserver(&recorder, "first", "elsewhere");
    wrapper.removeObserver(&recorder, std::nullopt);
    EXPECT_EQ(center->registeredNotificationNames(), QStringList({"a.b.x", "elsewhere"}));
    wrapper.postNotificationName("x");
    ASSERT_TRUE(waitUntil([&] { return recorder.calls.size() == 1; }));

    wrapper.removeObserver(&recorder);
    EXPECT_TRUE(center->registeredNotificationNames().isEmpty());
}

TEST(PLXDarwinNotificationCenterFactories, WrappersShareTheOneDefaultCenter) {
    auto first = PLXDarwinNotificationCenter::defaultCenter();
    EXPECT_EQ(first, PLXDarwinNotificationCenter::defaultCenter());
    EXPECT_EQ(first->darwinNotificationCenter(), DarwinNotifyCenter::systemCenter());

    auto a = PLXDarwinNotificationCenter::centerWithPrefix("p");
    EXPECT_NE(a, PLXDarwinNotificationCenter::centerWithPrefix("p")) << "a new wrapper per call";
    auto* wrapperA = dynamic_cast<PLXNotificationCenterPrefixWrapper*>(a.get());
    ASSERT_NE(wrapperA, nullptr);
    EXPECT_EQ(wrapperA->notificationCenter(), first);

    auto otp = PLXDarwinNotificationCenter::otpDarwinNotificationCenter();
    auto* otpWrapper = dynamic_cast<PLXNotificationCenterPrefixWrapper*>(otp.get());
    ASSERT_NE(otpWrapper, nullptr);
    EXPECT_EQ(otpWrapper->prefix(), platform::Identity::bundleIdentifier());
    EXPECT_EQ(otpWrapper->notificationCenter(), first);

    const QString name = uniqueName("otp");
    QStringList heard;
    auto token = otp->addObserverForName(name, nullptr, [&](const auto& n) { heard << n.name; });
    PLXDarwinNotificationCenter::otpDarwinNotificationCenter()->postNotificationName(name);
    ASSERT_TRUE(waitUntil([&] { return heard.size() == 1; }));
    EXPECT_EQ(heard.first(), platform::Identity::bundleIdentifier() + "." + name);
    otp->removeObserver(token.get());
}

} // namespace
