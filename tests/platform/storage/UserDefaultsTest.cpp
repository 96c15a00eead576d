// Settings suites: values, registration defaults, merging writers, and the file as other processes
// and broken disks see it (corrupt and unreadable files, two real processes sharing one suite).
#include "marlockCompanionCommon/platform/storage/UserDefaults.h"

#include "marlockCompanionCommon/platform/runtime/Identity.h"
#include "marlockCompanionCommon/platform/runtime/SystemLog.h"
#include "marlockCompanionCommon/platform/storage/PropertyList.h"
#include "marlockCompanionCommon/platform/storage/internal/FileLock.h"
#include "marlockCompanionCommon/platform/storage/internal/UserDefaultsStore.h"
#include "tests/platform/storage/QVariantPrinter.h"
#include "tests/support/TestSupport.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QPoint>
#include <QProcess>
#include <QSaveFile>
#include <QThread>
#include <QTimeZone>

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <random>
#include <thread>

#include <unistd.h>

using platform::UserDefaults;
using platform::internal::FileLock;
using platform::internal::UserDefaultsStore;
using testsupport::waitUntil;

namespace {

// Each test gets its own config folder and its own suite name, so that the process-wide
// instances of earlier tests never interfere.
class UserDefaultsTest : public ::testing::Test {
protected:
    testsupport::ScopedIsolatedHome home;
    const QString suiteName = platform::Identity::applicationGroup();

    QString configFolder() const { return home.path() + QStringLiteral("/config"); }

    static QByteArray contentOf(const QString& path) {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    // The file's content as a fresh reader sees it; invalid when there is no file.
    static QVariant readFile(const QString& path) {
        return platform::PropertyList::read(contentOf(path)).value_or(QVariant());
    }
};

// One value of every type a suite stores, in the form reading gives back.
QVariantMap everyValueType() {
    return {{"bool", true},
            {"integer", std::numeric_limits<qint64>::min()},
            {"double", -2.75},
            {"string", QStringLiteral("séparateur ✓")},
            {"data", QByteArray("\x00\xff", 2)},
            {"date", QDateTime(QDate(2024, 2, 29), QTime(12, 34, 56, 789), QTimeZone::utc())},
            {"array", QVariantList{qint64(1), "two"}},
            {"dictionary", QVariantMap{{"nested", QVariantMap{{"x", 1.5}}}}}};
}

// The system-log lines written while it lives.
struct LogLines {
    QStringList lines;
    platform::SystemLogCapture capture{[this](const QString& line) { lines << line; }};
};

class UserDefaultsDeathTest : public UserDefaultsTest {};

// The second process: tests/platform/storage/UserDefaultsHelper.cpp.
struct HelperRun {
    int exitCode = -1;
    QByteArray output;
};

std::unique_ptr<QProcess> startHelper(const QStringList& arguments) {
    auto process = std::make_unique<QProcess>();
    process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process->start(QStringLiteral(MARLOCK_USER_DEFAULTS_HELPER), arguments);
    return process;
}

HelperRun finishHelper(QProcess& process) {
    process.waitForFinished(120000);
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            process.readAllStandardOutput()};
}

// Waits for the next line the helper prints.
QByteArray lineFrom(QProcess& process) {
    return waitUntil([&] { return process.canReadLine(); }) ? process.readLine().trimmed() : QByteArray();
}

HelperRun runHelper(const QStringList& arguments) {
    return finishHelper(*startHelper(arguments));
}

void writeRaw(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSaveFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(bytes);
    ASSERT_TRUE(file.commit());
}

// The files a broken settings file was moved to.
QStringList movedAside(const QString& path) {
    const QFileInfo info(path);
    QStringList found;
    for (const QFileInfo& entry :
         QDir(info.absolutePath())
             .entryInfoList({info.fileName() + ".corrupt-*"},
                            QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden))
        found << entry.absoluteFilePath();
    return found;
}

} // namespace

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

    QVariantMap read;
    for (const QString& key : expected.keys())
        read.insert(key, suite->objectForKey(key));
    expectSameValues(read, expected);
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

TEST_F(UserDefaultsTest, CorruptFilesAreLoggedMovedAsideAndReadAsEmpty) {
    const QList<std::pair<const char*, QByteArray>> cases{
        {"garbage", QByteArray("not a property list")},
        {"truncated",
         platform::PropertyList::write(QVariantMap{{"a", 1}}, platform::PropertyList::Format::Binary)
             ->left(20)},
        {"empty", QByteArray()},
        {"array", *platform::PropertyList::write(QVariantList{1}, platform::PropertyList::Format::Binary)},
    };
    for (const auto& [name, bytes] : cases) {
        UserDefaults* suite = UserDefaults::suiteNamed(suiteName + "." + name);
        writeRaw(suite->filePath(), bytes);
        SCOPED_TRACE(name);
        LogLines log;
        EXPECT_FALSE(suite->objectForKey("a").isValid());
        ASSERT_EQ(log.lines.size(), 1);
        EXPECT_TRUE(log.lines[0].contains(suite->filePath())) << qPrintable(log.lines[0]);
        const QStringList aside = movedAside(suite->filePath());
        ASSERT_EQ(aside.size(), 1);
        EXPECT_TRUE(log.lines[0].contains(aside[0])) << qPrintable(log.lines[0]);
        EXPECT_EQ(contentOf(aside[0]), bytes);
        EXPECT_FALSE(QFile::exists(suite->filePath()));

        // New values go to a new file; the broken one stays as it was, and is logged once.
        suite->setBool(true, "fresh");
        ASSERT_TRUE(suite->synchronize());
        EXPECT_EQ(readFile(suite->filePath()), QVariant(QVariantMap{{"fresh", true}}));
        EXPECT_EQ(movedAside(suite->filePath()), aside);
        EXPECT_EQ(contentOf(aside[0]), bytes);
        EXPECT_EQ(log.lines.size(), 1);
    }
}

TEST_F(UserDefaultsTest, AFileBrokenByAnotherWriterIsMovedAsideWithoutLosingPendingChanges) {
    UserDefaults* suite = UserDefaults::suiteNamed(suiteName);
    suite->setObject("kept", "stored");
    ASSERT_TRUE(suite->synchronize());
    suite->setObject("pending", "unsaved");

    writeRaw(suite->filePath(), "bplist00 broken");
    LogLines log;
    EXPECT_FALSE(suite->objectForKey("stored").isValid());
    EXPECT_EQ(suite->stringForKey("unsaved"), "pending");
    EXPECT_EQ(log.lines.size(), 1);
    EXPECT_EQ(movedAside(suite->filePath()).size(), 1);

    ASSERT_TRUE(suite->synchronize());
    EXPECT_EQ(readFile(suite->filePath()), QVariant(QVariantMap{{"unsaved", "pending"}}));
}

TEST_F(UserDefaultsTest, UnreadableFilesAreMovedAsideAndReadAsEmpty) {
    // A folder where the file should be cannot be read by anyone; a file without read
    // permission by anyone but root.
    for (const bool folder : {true, false}) {
        if (!folder && geteuid() == 0)
            continue;
        UserDefaults* suite = UserDefaults::suiteNamed(suiteName + (folder ? ".folder" : ".unreadable"));
        if (folder) {
            ASSERT_TRUE(QDir().mkpath(suite->filePath()));
        } else {
            writeRaw(suite->filePath(), *platform::PropertyList::write(
                                            QVariantMap{{"a", 1}}, platform::PropertyList::Format::Binary));
            ASSERT_TRUE(QFile::setPermissions(suite->filePath(), QFileDevice::WriteOwner));
        }
        LogLines log;
        EXPECT_FALSE(suite->objectForKey("a").isValid());
        EXPECT_EQ(log.lines.size(), 1);
        ASSERT_EQ(movedAside(suite->filePath()).size(), 1);
        suite->setInteger(5, "a");
        EXPECT_TRUE(suite->synchronize());
        EXPECT_EQ(UserDefaultsStore(suite->filePath()).value("a"), QVariant(qint64(5)));
    }
}

TEST_F(UserDefaultsTest, AnotherProcessSeesSynchronizedWritesAndThisOneSeesItsWithoutSynchronizing) {
    UserDefaults* suite = UserDefaults::suiteNamed(suiteName);
    const QVariantMap values = everyValueType();
    for (auto it = values.begin(); it != values.end(); ++it)
        suite->setObject(it.value(), it.key());
    // Not yet synchronized: the other process sees nothing.
    HelperRun before = runHelper({"get", suiteName, "bool", "string"});
    ASSERT_EQ(before.exitCode, 0);
    EXPECT_EQ(platform::PropertyList::read(before.output), QVariant(QVariantMap{}));

    ASSERT_TRUE(suite->synchronize());
    HelperRun after = runHelper(QStringList{"get", suiteName} + values.keys());
    ASSERT_EQ(after.exitCode, 0);
    expectSameValues(platform::PropertyList::read(after.output).value_or(QVariant()).toMap(), values);

    // The other way round, and this process never calls synchronize().
    EXPECT_TRUE(suite->stringForKey("greeting").isEmpty());
    ASSERT_EQ(runHelper({"set", suiteName, "greeting", "hello"}).exitCode, 0);
    EXPECT_EQ(suite->stringForKey("greeting"), "hello");
    ASSERT_EQ(runHelper({"set", suiteName, "greeting", "again"}).exitCode, 0);
    EXPECT_EQ(suite->stringForKey("greeting"), "again");
    EXPECT_TRUE(suite->boolForKey("bool"));
}

TEST_F(UserDefaultsTest, ProcessesWritingDifferentKeysConcurrentlyLoseNothing) {
    constexpr int count = 150;
    auto first = startHelper({"write", suiteName, "first", QString::number(count)});
    auto second = startHelper({"write", suiteName, "second", QString::number(count)});
    UserDefaults* suite = UserDefaults::suiteNamed(suiteName);
    LogLines log;
    for (int i = 0; i < count; ++i) {
        suite->setInteger(i, QStringLiteral("own%1").arg(i));
        EXPECT_TRUE(suite->synchronize()) << qPrintable(log.lines.join('\n'));
    }
    EXPECT_EQ(finishHelper(*first).exitCode, 0);
    EXPECT_EQ(finishHelper(*second).exitCode, 0);

    const QVariantMap stored = readFile(suite->filePath()).toMap();
    EXPECT_EQ(stored.size(), 3 * count);
    for (const char* prefix : {"first", "second", "own"})
        for (int i = 0; i < count; ++i)
            EXPECT_EQ(stored.value(QStringLiteral("%1%2").arg(QLatin1String(prefix)).arg(i)),
                      QVariant(qint64(i)))
                << prefix << i;
    EXPECT_EQ(suite->integerForKey(QStringLiteral("second%1").arg(count - 1)), count - 1);
}

TEST_F(UserDefaultsTest, AnotherProcessSavesWhatItLeftUnsavedSoonAfterAndWhenItEnds) {
    for (const QString how : {"loop", "return", "exit"}) {
        SCOPED_TRACE(qPrintable(how));
        const QString path = UserDefaults::suiteNamed(suiteName + "." + how)->filePath();
        auto helper = startHelper({"leave", suiteName + "." + how, "key", how, how});
        if (how == "loop") {
            ASSERT_EQ(lineFrom(*helper), "stored");
            // Stored by another thread, saved by the event loop of a process that goes on running.
            EXPECT_TRUE(waitUntil([&] { return readFile(path).toMap().value("key") == how; }));
            helper->closeWriteChannel();
        }
        EXPECT_EQ(finishHelper(*helper).exitCode, 0);
        EXPECT_EQ(readFile(path), QVariant(QVariantMap{{"key", how}}));
    }
}

TEST_F(UserDefaultsTest, NeitherALeftoverLockFileNorAKilledHolderKeepsOthersWaiting) {
    UserDefaults* suite = UserDefaults::suiteNamed(suiteName);
    const QString lockPath = suite->filePath() + ".lock";
    // The empty lock file of a writer killed just after creating it.
    writeRaw(lockPath, QByteArray());
    suite->setObject("despite", "aLockFile");
    EXPECT_TRUE(suite->synchronize());

    auto holder = startHelper({"hold", suiteName});
    ASSERT_EQ(lineFrom(*holder), "locked");
    EXPECT_FALSE(FileLock(lockPath).tryLock()) << "the other process holds it";
    holder->kill();
    finishHelper(*holder);
    EXPECT_TRUE(FileLock(lockPath).tryLock()) << "released as its holder died";
    suite->setObject("after", "aKill");
    EXPECT_TRUE(suite->synchronize());
    EXPECT_EQ(readFile(suite->filePath()),
              QVariant(QVariantMap{{"aLockFile", "despite"}, {"aKill", "after"}}));
}

TEST_F(UserDefaultsTest, OpeningRemovesASaveLeftByAKilledWriterOnlyWhenNobodyIsSaving) {
    const QString path = UserDefaults::suiteNamed(suiteName)->filePath();
    writeRaw(path, *platform::PropertyList::write(QVariantMap{{"kept", true}},
                                                  platform::PropertyList::Format::Binary));
    writeRaw(path + ".saving", "half a property list");
    writeRaw(path + ".backup", "the user's");
    {
        FileLock writer(path + ".lock");
        ASSERT_TRUE(writer.tryLock());
        UserDefaultsStore opened(path);
        EXPECT_TRUE(QFile::exists(path + ".saving")) << "it may be the save of the lock's holder";
    }
    LogLines log;
    UserDefaultsStore opened(path);
    EXPECT_FALSE(QFile::exists(path + ".saving"));
    EXPECT_EQ(log.lines.size(), 1);
    EXPECT_EQ(contentOf(path + ".backup"), "the user's");
    EXPECT_EQ(opened.value("kept"), QVariant(true));
}

TEST_F(UserDefaultsTest, WritersKilledAtRandomMomentsLoseNoAcknowledgedWriteAndBlockNobody) {
    const QString path = UserDefaults::suiteNamed(suiteName)->filePath();
    std::mt19937 random(20240229);
    QVariantMap acknowledged;
    int savesCutShort = 0;
    for (int trial = 0; trial < 30; ++trial) {
        const QString prefix = QStringLiteral("t%1-").arg(trial);
        auto writer = startHelper({"write", suiteName, prefix, "100000"});
        QByteArrayList lines;
        for (int wanted = int(random() % 6); lines.size() <= wanted;)
            lines << lineFrom(*writer);
        ASSERT_FALSE(lines.last().isEmpty()) << "the writer acknowledged nothing";
        QThread::usleep(random() % 3000);
        writer->kill();
        writer->waitForFinished();
        lines += writer->readAllStandardOutput().split('\n');
        for (const QByteArray& line : lines)
            if (!line.isEmpty())
                acknowledged.insert(prefix + line, line.toLongLong());

        const QVariantMap stored = readFile(path).toMap();
        for (auto it = acknowledged.begin(); it != acknowledged.end(); ++it)
            ASSERT_EQ(stored.value(it.key()), it.value()) << qPrintable(it.key());
        EXPECT_TRUE(FileLock(path + ".lock").tryLock());
        savesCutShort += QFile::exists(path + ".saving");
        UserDefaultsStore opened(path);
        EXPECT_FALSE(QFile::exists(path + ".saving"));
    }
    std::printf("saves cut short by the kill: %d of 30\n", savesCutShort);
}
