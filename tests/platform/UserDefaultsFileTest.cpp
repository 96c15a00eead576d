// The settings file as other processes and broken disks see it: corrupt and unreadable files,
// and two real processes sharing one suite.
#include "marlockCompanionCommon/platform/UserDefaults.h"

#include "marlockCompanionCommon/platform/PropertyList.h"
#include "marlockCompanionCommon/platform/internal/UserDefaultsStore.h"
#include "tests/platform/UserDefaultsTestSupport.h"

#include <QDir>
#include <QFile>
#include <QSaveFile>

#include <gtest/gtest.h>

#include <unistd.h>

using platform::UserDefaults;
using platform::internal::UserDefaultsStore;

namespace {

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

QByteArray contentOf(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

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
    // A folder where the file should be cannot be read by anyone, root included.
    UserDefaults* suite = UserDefaults::suiteNamed(suiteName);
    ASSERT_TRUE(QDir().mkpath(suite->filePath()));
    LogLines log;
    EXPECT_FALSE(suite->objectForKey("a").isValid());
    EXPECT_EQ(log.lines.size(), 1);
    const QStringList aside = movedAside(suite->filePath());
    ASSERT_EQ(aside.size(), 1);
    EXPECT_TRUE(QFileInfo(aside[0]).isDir());
    suite->setInteger(5, "a");
    EXPECT_TRUE(suite->synchronize());
    EXPECT_EQ(UserDefaultsStore(suite->filePath()).value("a"), QVariant(qint64(5)));
}

TEST_F(UserDefaultsTest, FilesWithoutReadPermissionAreMovedAside) {
    if (geteuid() == 0)
        GTEST_SKIP() << "root reads files whatever their permissions";
    UserDefaults* suite = UserDefaults::suiteNamed(suiteName);
    writeRaw(suite->filePath(),
             *platform::PropertyList::write(QVariantMap{{"a", 1}}, platform::PropertyList::Format::Binary));
    ASSERT_TRUE(QFile::setPermissions(suite->filePath(), QFileDevice::WriteOwner));
    LogLines log;
    EXPECT_FALSE(suite->objectForKey("a").isValid());
    EXPECT_EQ(log.lines.size(), 1);
    EXPECT_EQ(movedAside(suite->filePath()).size(), 1);
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
    EXPECT_FALSE(QFile::exists(suite->filePath() + ".lock"));
}
