#include "marlockCompanionCommon/preferences/ViewPreferencesManager.h"

#include "marlockCommon/Bundle.h"
#include "marlockCompanionCommon/notifications/PLXDarwinNotificationCenter.h"
#include "marlockCompanionCommon/platform/PropertyList.h"
#include "marlockCompanionCommon/platform/UserDefaults.h"
#include "tests/preferences/QStringPrinter.h"
#include "tests/support/TestSupport.h"

#include <QFile>
#include <QStringList>
#include <QUuid>

#include <gtest/gtest.h>

#include <thread>

using namespace std::chrono_literals;
using testsupport::spinEventLoop;
using testsupport::waitUntil;

namespace {

platform::UserDefaults* freshSuite() {
    return platform::UserDefaults::suiteNamed(QStringLiteral("test.vpm.suite.") +
                                              QUuid::createUuid().toString(QUuid::Id128));
}

// Hears the two preference notifications the way the other process would, through the
// prefixed cross-process center; records the bare names in arrival order.
class NotificationRecorder {
public:
    NotificationRecorder() {
        for (const QString& name : {VPMSeparatorStringDidChangeDarwinNotification,
                                    VPMChangeColorWhenCodeWillChangeDidChangeDarwinNotification})
            tokens_.push_back(
                center_->addObserverForName(name, nullptr, [this](const platform::Notification& n) {
                    names.append(n.name.section(QLatin1Char('.'), -1));
                }));
    }
    ~NotificationRecorder() {
        for (const auto& token : tokens_)
            center_->removeObserver(token.get());
    }
    // Lets notifications still on their way arrive.
    void settle() { spinEventLoop(200ms); }

    QStringList names;

private:
    std::shared_ptr<PLXNotificationCenter> center_ =
        PLXDarwinNotificationCenter::otpDarwinNotificationCenter();
    std::vector<PLXNotificationCenter::ObserverToken> tokens_;
};

QByteArray plist(const QVariantMap& values) {
    return platform::PropertyList::write(values, platform::PropertyList::Format::Xml).value();
}

TEST(ViewPreferencesManager, WithNothingStoredOrRegisteredReadsEmptyAndFalse) {
    ViewPreferencesManager withoutFile(freshSuite(), std::nullopt);
    EXPECT_EQ(withoutFile.getSeparatorString(), QString());
    EXPECT_FALSE(withoutFile.getChangeColorWhenCodeWillChange());
    EXPECT_FALSE(withoutFile.getAnimateCodeChanges());

    ViewPreferencesManager withUnreadableFile(freshSuite(), QByteArray("<plist><dict><key>"));
    EXPECT_EQ(withUnreadableFile.getSeparatorString(), QString());
    EXPECT_FALSE(withUnreadableFile.getAnimateCodeChanges());

    ViewPreferencesManager withAnArray(
        freshSuite(), platform::PropertyList::write(QVariantList{true}, platform::PropertyList::Format::Xml));
    EXPECT_FALSE(withAnArray.getAnimateCodeChanges());
}

TEST(ViewPreferencesManager, RegisteredDefaultsAnswerUntilAValueIsStored) {
    ViewPreferencesManager manager(freshSuite(), plist({{"separatorString", " "},
                                                        {"changeColorWhenCodeWillChange", true},
                                                        {"animateCodeChanges", true}}));
    EXPECT_EQ(manager.getSeparatorString(), QStringLiteral(" "));
    EXPECT_TRUE(manager.getChangeColorWhenCodeWillChange());
    EXPECT_TRUE(manager.getAnimateCodeChanges());

    manager.setAnimateCodeChanges(false, false);
    EXPECT_FALSE(manager.getAnimateCodeChanges());
}

TEST(ViewPreferencesManager, TheLibrarysDefaultsFileIsRegistered) {
    const std::optional<QByteArray> bytes = marlockCommon::resourceData("defaults", "plist");
    ASSERT_TRUE(bytes.has_value());
    const QVariantMap expected = platform::PropertyList::read(*bytes).value().toMap();
    ASSERT_FALSE(expected.isEmpty());

    ViewPreferencesManager manager(freshSuite(), bytes);
    EXPECT_EQ(manager.getSeparatorString(), expected.value("separatorString").toString());
    EXPECT_EQ(manager.getChangeColorWhenCodeWillChange(),
              expected.value("changeColorWhenCodeWillChange").toBool());
    EXPECT_EQ(manager.getAnimateCodeChanges(), expected.value("animateCodeChanges").toBool());
}

TEST(ViewPreferencesManager, SettersStoreFlushOnRequestAndPostEvenWithoutAChange) {
    platform::UserDefaults* suite = freshSuite();
    ViewPreferencesManager manager(suite, std::nullopt);
    NotificationRecorder recorder;

    manager.setSeparatorString(QStringLiteral("-"), false);
    manager.setSeparatorString(QStringLiteral("-"), false);
    EXPECT_EQ(manager.getSeparatorString(), QStringLiteral("-"));
    EXPECT_FALSE(QFile::exists(suite->filePath())) << "not flushed when synchronize is false";

    manager.setChangeColorWhenCodeWillChange(true);
    EXPECT_TRUE(manager.getChangeColorWhenCodeWillChange());
    EXPECT_TRUE(QFile::exists(suite->filePath())) << "flushed by default";

    manager.setAnimateCodeChanges(true);
    EXPECT_TRUE(manager.getAnimateCodeChanges());

    ASSERT_TRUE(waitUntil([&] { return recorder.names.size() >= 3; }));
    recorder.settle();
    EXPECT_EQ(recorder.names, (QStringList{VPMSeparatorStringDidChangeDarwinNotification,
                                           VPMSeparatorStringDidChangeDarwinNotification,
                                           VPMChangeColorWhenCodeWillChangeDidChangeDarwinNotification}))
        << "the animation preference posts nothing";
}

TEST(ViewPreferencesManager, ResetWritesTheFactoryValuesAndPostsSeparatorThenColour) {
    ViewPreferencesManager manager(freshSuite(), plist({{"separatorString", " "},
                                                        {"changeColorWhenCodeWillChange", true},
                                                        {"animateCodeChanges", false}}));
    manager.setAnimateCodeChanges(false, false);
    NotificationRecorder recorder;

    manager.resetToDefault();
    EXPECT_TRUE(manager.getAnimateCodeChanges());
    EXPECT_EQ(manager.getSeparatorString(), QString())
        << "written, so the registered \" \" no longer applies";
    EXPECT_FALSE(manager.getChangeColorWhenCodeWillChange());

    ASSERT_TRUE(waitUntil([&] { return recorder.names.size() >= 2; }));
    recorder.settle();
    EXPECT_EQ(recorder.names, (QStringList{VPMSeparatorStringDidChangeDarwinNotification,
                                           VPMChangeColorWhenCodeWillChangeDidChangeDarwinNotification}));
}

TEST(ViewPreferencesManager, FormatsCodesWithTheSharedManagersSeparator) {
    ViewPreferencesManager* shared = ViewPreferencesManager::sharedManager();
    ViewPreferencesManager* fromThread = nullptr;
    std::thread([&] { fromThread = ViewPreferencesManager::sharedManager(); }).join();
    EXPECT_EQ(fromThread, shared);

    shared->setSeparatorString(QStringLiteral("-"), false);
    EXPECT_EQ(ViewPreferencesManager::formatCodeWithSeparator(QStringLiteral("12345678")),
              QStringLiteral("123-456-78"));
    shared->setSeparatorString(QString(), false);
    EXPECT_EQ(ViewPreferencesManager::formatCodeWithSeparator(QStringLiteral("12345678")),
              QStringLiteral("12345678"));
}

TEST(ViewPreferencesManagerDeathTest, AStoredSeparatorThatIsNotAStringIsFatal) {
    platform::UserDefaults* suite = freshSuite();
    ViewPreferencesManager manager(suite, std::nullopt);
    suite->setInteger(5, QStringLiteral("separatorString"));
    EXPECT_DEATH((void)manager.getSeparatorString(), "Fatal error: Could not cast value of type");
}

} // namespace
