#include "marlockCompanionCommon/preferences/ViewPreferencesManager.h"

#include "marlockCommon/Bundle.h"
#include "marlockCompanionCommon/notifications/PLXDarwinNotificationCenter.h"
#include "marlockCompanionCommon/platform/storage/PropertyList.h"
#include "marlockCompanionCommon/platform/storage/UserDefaults.h"
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
    // Waits for `expected` names, then lets any further ones still on their way arrive.
    QStringList received(qsizetype expected) {
        (void)waitUntil([&] { return names.size() >= expected; });
        spinEventLoop(200ms);
        return names;
    }
    QStringList names;

private:
    std::shared_ptr<PLXNotificationCenter> center_ =
        PLXDarwinNotificationCenter::otpDarwinNotificationCenter();
    std::vector<PLXNotificationCenter::ObserverToken> tokens_;
};

QByteArray plist(const QVariant& values) {
    return platform::PropertyList::write(values, platform::PropertyList::Format::Xml).value();
}

TEST(ViewPreferencesManager, RegisteredDefaultsAnswerUntilAValueIsStored) {
    const std::optional<QByteArray> library = marlockCommon::resourceData("defaults", "plist");
    ASSERT_TRUE(library.has_value());
    const QVariantMap libraryValues = platform::PropertyList::read(*library).value().toMap();
    ASSERT_FALSE(libraryValues.isEmpty());
    const QVariantMap registered{
        {"separatorString", " "}, {"changeColorWhenCodeWillChange", true}, {"animateCodeChanges", true}};
    const struct {
        const char* name;
        std::optional<QByteArray> registration;
        QVariantMap expected; // empty: nothing registered, so "" and false
    } cases[] = {{"no file", std::nullopt, {}},
                 {"unreadable file", QByteArray("<plist><dict><key>"), {}},
                 {"an array", plist(QVariantList{true}), {}},
                 {"a dictionary", plist(registered), registered},
                 {"the library's file", library, libraryValues}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ViewPreferencesManager manager(freshSuite(), c.registration);
        EXPECT_EQ(manager.getSeparatorString(), c.expected.value("separatorString", QString()).toString());
        const bool animate = c.expected.value("animateCodeChanges", false).toBool();
        EXPECT_EQ(manager.getChangeColorWhenCodeWillChange(),
                  c.expected.value("changeColorWhenCodeWillChange", false).toBool());
        EXPECT_EQ(manager.getAnimateCodeChanges(), animate);

        manager.setAnimateCodeChanges(!animate, false);
        EXPECT_EQ(manager.getAnimateCodeChanges(), !animate);
    }
}

TEST(ViewPreferencesManager, SettersSaveWhatTheyAnnounceAndPostEvenWithoutAChange) {
    platform::UserDefaults* suite = freshSuite();
    ViewPreferencesManager manager(suite, std::nullopt);
    NotificationRecorder recorder;

    manager.setSeparatorString(QStringLiteral("-"), false);
    manager.setSeparatorString(QStringLiteral("-"), false);
    EXPECT_EQ(manager.getSeparatorString(), QStringLiteral("-"));
    EXPECT_TRUE(QFile::exists(suite->filePath())) << "saved before the post, though not asked to";

    manager.setChangeColorWhenCodeWillChange(true);
    EXPECT_TRUE(manager.getChangeColorWhenCodeWillChange());

    manager.setAnimateCodeChanges(true);
    EXPECT_TRUE(manager.getAnimateCodeChanges());

    EXPECT_EQ(recorder.received(3),
              (QStringList{VPMSeparatorStringDidChangeDarwinNotification,
                           VPMSeparatorStringDidChangeDarwinNotification,
                           VPMChangeColorWhenCodeWillChangeDidChangeDarwinNotification}))
        << "the animation preference posts nothing";
}

TEST(ViewPreferencesManager, ResetWritesTheFactoryValuesAndPostsSeparatorThenColour) {
    ViewPreferencesManager manager(freshSuite(), plist(QVariantMap{{"separatorString", " "},
                                                                   {"changeColorWhenCodeWillChange", true},
                                                                   {"animateCodeChanges", false}}));
    manager.setAnimateCodeChanges(false, false);
    NotificationRecorder recorder;

    manager.resetToDefault();
    EXPECT_TRUE(manager.getAnimateCodeChanges());
    EXPECT_EQ(manager.getSeparatorString(), QString())
        << "written, so the registered \" \" no longer applies";
    EXPECT_FALSE(manager.getChangeColorWhenCodeWillChange());

    EXPECT_EQ(recorder.received(2),
              (QStringList{VPMSeparatorStringDidChangeDarwinNotification,
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
