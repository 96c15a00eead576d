#include "marlockCompanionCommon/platform/UserDefaults.h"

#include "marlockCompanionCommon/platform/internal/UserDefaultsStore.h"
#include "tests/platform/UserDefaultsTestSupport.h"

#include <QFile>
#include <QPoint>

#include <gtest/gtest.h>

#include <limits>
#include <thread>

using platform::UserDefaults;
using platform::internal::UserDefaultsStore;

TEST_F(UserDefaultsTest, OpensOneSharedInstancePerSuiteInTheConfigFolder) {
    UserDefaults* suite = UserDefaults::suiteNamed(suiteName);
    ASSERT_NE(suite, nullptr);
    EXPECT_EQ(UserDefaults::suiteNamed(suiteName), suite);
    EXPECT_EQ(suite->suiteName(), suiteName);
    EXPECT_EQ(suite->filePath(), configFolder() + "/" + suiteName + ".plist");

    UserDefaults* standard = UserDefaults::standardUserDefaults();
    ASSERT_NE(standard, nullptr);
    EXPECT_NE(standard, suite);
    EXPECT_EQ(standard->filePath(), configFolder() + "/" + platform::Identity::bundleIdentifier() + ".plist");

    for (const QString& bad : {QString(), QStringLiteral("a/b"), QStringLiteral("."), QStringLiteral(".."),
                               platform::Identity::bundleIdentifier()})
        EXPECT_EQ(UserDefaults::suiteNamed(bad), nullptr) << qPrintable(bad);

    // Opening and reading write nothing.
    EXPECT_FALSE(suite->objectForKey("anything").isValid());
    EXPECT_FALSE(QFile::exists(suite->filePath()));
}

TEST_F(UserDefaultsTest, FallsBackToDotConfigWhenXdgConfigHomeIsUnsetOrRelative) {
    const QByteArray oldHome = qgetenv("HOME");
    qputenv("HOME", home.path().toUtf8());
    for (const QByteArray& configured : {QByteArray(), QByteArray("relative/config")}) {
        qputenv("XDG_CONFIG_HOME", configured);
        UserDefaults* suite = UserDefaults::suiteNamed(suiteName);
        ASSERT_NE(suite, nullptr);
        EXPECT_EQ(suite->filePath(), home.path() + "/.config/" + suiteName + ".plist");
    }
    qputenv("HOME", oldHome);
}

TEST_F(UserDefaultsTest, KeepsEveryValueTypeThroughTheFile) {
    UserDefaults* suite = UserDefaults::suiteNamed(suiteName);
    QVariantMap expected = everyValueType();
    for (auto it = expected.begin(); it != expected.end(); ++it)
        suite->setObject(it.value(), it.key());
    suite->setObject(int(7), "int");
    expected.insert("int", qint64(7));
    // Values read back in the form the file gives them, before and after the file.
    EXPECT_EQ(suite->objectForKey("int"), QVariant(qint64(7)));
    EXPECT_EQ(suite->objectForKey("int").typeId(), QMetaType::LongLong);
    ASSERT_TRUE(suite->synchronize());

    QFile file(suite->filePath());
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray bytes = file.readAll();
    EXPECT_TRUE(platform::PropertyList::isBinary(bytes));
    expectSameValues(platform::PropertyList::read(bytes)->toMap(), expected);

    UserDefaultsStore fresh(suite->filePath());
    for (auto it = expected.begin(); it != expected.end(); ++it) {
        EXPECT_EQ(fresh.value(it.key()), it.value()) << qPrintable(it.key());
        EXPECT_EQ(fresh.value(it.key()).typeId(), it.value().typeId()) << qPrintable(it.key());
        EXPECT_EQ(suite->objectForKey(it.key()), it.value()) << qPrintable(it.key());
    }
    EXPECT_TRUE(suite->boolForKey("bool"));
    EXPECT_EQ(suite->integerForKey("integer"), std::numeric_limits<qint64>::min());
    EXPECT_EQ(suite->doubleForKey("double"), -2.75);
    EXPECT_EQ(suite->stringForKey("string"), QStringLiteral("séparateur ✓"));
    EXPECT_EQ(suite->dataForKey("data"), QByteArray("\x00\xff", 2));
}

TEST_F(UserDefaultsTest, TypedReadsConvertNumbersAndTextOrGiveEmptyValues) {
    UserDefaults* suite = UserDefaults::suiteNamed(suiteName);
    suite->setObject(QStringLiteral(" 42 "), "text42");
    suite->setObject(QStringLiteral("YES"), "textYes");
    suite->setInteger(0, "zero");
    suite->setDouble(3.9, "real");
    suite->setObject(QByteArray("1"), "data");

    EXPECT_EQ(suite->integerForKey("text42"), 42);
    EXPECT_TRUE(suite->boolForKey("text42"));
    EXPECT_TRUE(suite->boolForKey("textYes"));
    EXPECT_FALSE(suite->boolForKey("zero"));
    EXPECT_EQ(suite->integerForKey("real"), 3);
    EXPECT_EQ(suite->stringForKey("real"), "3.9");
    EXPECT_EQ(suite->stringForKey("zero"), "0");
    EXPECT_EQ(suite->doubleForKey("text42"), 42.0);
    // Data converts to nothing else; strings and numbers are not data.
    EXPECT_FALSE(suite->boolForKey("data"));
    EXPECT_EQ(suite->stringForKey("data"), QString());
    EXPECT_EQ(suite->dataForKey("text42"), QByteArray());
    // Absent keys.
    EXPECT_FALSE(suite->boolForKey("absent"));
    EXPECT_EQ(suite->integerForKey("absent"), 0);
    EXPECT_EQ(suite->doubleForKey("absent"), 0.0);
    EXPECT_TRUE(suite->stringForKey("absent").isNull());
    EXPECT_FALSE(suite->objectForKey("absent").isValid());
}

TEST_F(UserDefaultsTest, RegistrationDefaultsAnswerOnlyWhileNoValueIsStored) {
    UserDefaults* suite = UserDefaults::suiteNamed(suiteName);
    suite->registerDefaults({{"animate", true}, {"separator", "-"}});
    suite->registerDefaults({{"separator", " "}, {"count", int(3)}});
    EXPECT_TRUE(suite->boolForKey("animate"));
    EXPECT_EQ(suite->stringForKey("separator"), " ");
    EXPECT_EQ(suite->objectForKey("count"), QVariant(qint64(3)));

    suite->setBool(false, "animate");
    EXPECT_FALSE(suite->boolForKey("animate"));
    ASSERT_TRUE(suite->synchronize());
    EXPECT_FALSE(suite->boolForKey("animate"));

    suite->removeObjectForKey("animate");
    EXPECT_TRUE(suite->boolForKey("animate"));
    ASSERT_TRUE(suite->synchronize());
    EXPECT_TRUE(suite->boolForKey("animate"));

    // Registered values stay in memory: the file holds no keys, and another reader sees none.
    EXPECT_EQ(readFile(suite->filePath()), QVariant(QVariantMap{}));
    UserDefaultsStore fresh(suite->filePath());
    EXPECT_FALSE(fresh.value("separator").isValid());
}

TEST_F(UserDefaultsTest, MergesWritersOfDifferentKeysWithoutResurrectingRemovals) {
    UserDefaults* suite = UserDefaults::suiteNamed(suiteName);
    suite->setObject("first", "doomed");
    ASSERT_TRUE(suite->synchronize());

    UserDefaultsStore other(suite->filePath());
    EXPECT_EQ(other.value("doomed"), QVariant("first")); // `other` now holds the key in memory
    other.setValue("fromOther", qint64(1));
    ASSERT_TRUE(other.synchronize());

    suite->removeObjectForKey("doomed");
    suite->setObject("mine", "fromSuite");
    ASSERT_TRUE(suite->synchronize());

    other.setValue("later", qint64(2));
    ASSERT_TRUE(other.synchronize());
    EXPECT_FALSE(other.value("doomed").isValid());

    EXPECT_EQ(readFile(suite->filePath()),
              QVariant(QVariantMap{{"fromOther", qint64(1)}, {"fromSuite", "mine"}, {"later", qint64(2)}}));
    // The last writer of one key wins.
    other.setValue("fromSuite", "overwritten");
    ASSERT_TRUE(other.synchronize());
    EXPECT_EQ(suite->stringForKey("fromSuite"), "overwritten");
}

TEST_F(UserDefaultsTest, KeepsEveryWriteOfConcurrentThreads) {
    UserDefaults* suite = UserDefaults::suiteNamed(suiteName);
    constexpr int threads = 4, keysPerThread = 60;
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([suite, t] {
            for (int i = 0; i < keysPerThread; ++i) {
                suite->setInteger(i, QStringLiteral("t%1-%2").arg(t).arg(i));
                suite->objectForKey(QStringLiteral("t%1-%2").arg((t + 1) % threads).arg(i));
                EXPECT_TRUE(i % 10 != 9 || suite->synchronize());
            }
        });
    for (std::thread& worker : workers)
        worker.join();
    const QVariantMap stored = readFile(suite->filePath()).toMap();
    EXPECT_EQ(stored.size(), threads * keysPerThread);
    for (int t = 0; t < threads; ++t)
        for (int i = 0; i < keysPerThread; ++i)
            EXPECT_EQ(stored.value(QStringLiteral("t%1-%2").arg(t).arg(i)), QVariant(qint64(i)));
}

TEST_F(UserDefaultsTest, KeepsChangesPendingWhileTheFileCannotBeWritten) {
    // A plain file where the config folder should be: nothing can be created below it.
    QFile blocker(home.path() + "/blocked");
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    qputenv("XDG_CONFIG_HOME", (home.path() + "/blocked/config").toUtf8());
    UserDefaults* suite = UserDefaults::suiteNamed(suiteName);

    LogLines log;
    suite->setObject("kept", "pending");
    EXPECT_FALSE(suite->synchronize());
    ASSERT_EQ(log.lines.size(), 1);
    EXPECT_TRUE(log.lines[0].contains(home.path() + "/blocked/config")) << qPrintable(log.lines[0]);
    EXPECT_EQ(suite->stringForKey("pending"), "kept");

    ASSERT_TRUE(blocker.remove());
    EXPECT_TRUE(suite->synchronize());
    EXPECT_EQ(readFile(suite->filePath()), QVariant(QVariantMap{{"pending", "kept"}}));
}

TEST_F(UserDefaultsDeathTest, StoringAValueNoPropertyListCanHoldStopsTheProcess) {
    UserDefaults* suite = UserDefaults::suiteNamed(suiteName);
    EXPECT_DEATH(suite->setObject(QPoint(1, 2), "point"), "non-property-list value for key \"point\"");
    EXPECT_DEATH(suite->registerDefaults({{"nested", QVariantList{QPoint()}}}), "for key \"nested\"");
}
