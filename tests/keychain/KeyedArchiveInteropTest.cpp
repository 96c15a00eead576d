// Keyed archives interchange with another tool that reads the standard layout: Python's plistlib
// reads what the archiver writes, and the unarchiver reads what a Python script writes.
#include "ArchiveTestSupport.h"

#include "marlockCommon/OTPToken.h"
#include "marlockCompanionCommon/keychain/KeyedArchiver.h"
#include "marlockCompanionCommon/keychain/KeyedUnarchiver.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace platform;
using namespace archivetest;

namespace {

const QString script = QStringLiteral(MARLOCK_SOURCE_DIR "/tests/keychain/interop/keyed_archive.py");

// Runs the script; its standard output, or on failure everything it said and why it failed.
QString runPython(const QString& command, const QString& file, bool* ok) {
    QProcess process;
    process.start(QStringLiteral("python3"), {script, command, file});
    *ok = process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit &&
          process.exitCode() == 0;
    const QString out = QString::fromUtf8(process.readAllStandardOutput());
    return *ok ? out : out + QString::fromUtf8(process.readAllStandardError()) + process.errorString();
}

} // namespace

TEST(KeyedArchiveInterop, PlistlibReadsTheArchivesWritten) {
    marlockCommon::TokenRecord record;
    record.issuer = QStringLiteral("Example");
    record.account = QStringLiteral("alice@example.org");
    record.secret = QByteArray("\x01\x02\x03", 3);
    record.counter = 5;
    const QVariantMap root{{"token", object(record.toOTPToken())},
                           {"list", QVariantList{1, 2.5, true, "text", QVariant::fromValue(nullptr)}},
                           {"date", QDateTime::fromMSecsSinceEpoch(978'307'201'500, Qt::UTC)},
                           {"data", QByteArray("\xca\xfe", 2)}};
    QTemporaryDir dir;
    const QString file = dir.filePath("archive");
    QFile out(file);
    ASSERT_TRUE(out.open(QIODevice::WriteOnly) && out.write(KeyedArchiver::archivedData(root, true)) > 0);
    out.close();

    bool ok = false;
    const QString json = runPython("describe", file, &ok);
    ASSERT_TRUE(ok) << json.toStdString();
    const QJsonObject described = QJsonDocument::fromJson(json.toUtf8()).object().value("root").toObject();

    const QJsonObject expected = QJsonDocument::fromJson(R"({
        "$class": "NSDictionary",
        "NS.keys": ["data", "date", "list", "token"],
        "NS.objects": [
            {"$data": "cafe"},
            {"$class": "NSDate", "NS.time": 1.5},
            {"$class": "NSArray", "NS.objects": [1, 2.5, true, "text", {"$class": "NSNull"}]},
            {"$class": "OTPToken", "type": "totp", "issuer": "Example", "account": "alice@example.org",
             "secret": {"$data": "010203"}, "algorithm": "SHA1", "digits": 6, "period": 30, "counter": 5}
        ]})")
                                     .object();
    EXPECT_EQ(described, expected) << json.toStdString();
}

TEST(KeyedArchiveInterop, ArchivesWrittenByPlistlibAreRead) {
    QTemporaryDir dir;
    const QString file = dir.filePath("archive");
    bool ok = false;
    const QString output = runPython("write", file, &ok);
    ASSERT_TRUE(ok) << output.toStdString();
    QFile in(file);
    ASSERT_TRUE(in.open(QIODevice::ReadOnly));

    const QVariantList root =
        KeyedUnarchiver::unarchivedObjectOfClasses({"NSArray", "NSDictionary", "NSString", "NSNumber",
                                                    "NSData", "NSDate", "NSNull", "NSSet", "OTPToken"},
                                                   in.readAll())
            .toList();
    ASSERT_EQ(root.size(), 7);
    EXPECT_EQ(root.mid(0, 5), QVariantList({"plain", 42, 2.5, true, QByteArray("raw")}));
    EXPECT_EQ(root[3].metaType().id(), QMetaType::Bool);

    const QVariantMap map = root[5].toMap();
    EXPECT_EQ(map.value("when").toDateTime(), QDateTime::fromMSecsSinceEpoch(978'307'201'500, Qt::UTC));
    EXPECT_EQ(map.value("nothing").metaType().id(), QMetaType::Nullptr);
    EXPECT_EQ(map.value("text"), QStringLiteral("mutable ✓"));
    EXPECT_EQ(map.value("blob").toByteArray(), QByteArray("\x00\x01", 2));
    EXPECT_EQ(map.value("set").value<ArchivedSet>().objects, QVariantList{3});

    const auto token = decoded<marlockCommon::OTPToken>(root[6]);
    ASSERT_TRUE(token);
    EXPECT_EQ(
        token->toTokenRecord(),
        (marlockCommon::TokenRecord{marlockCommon::OTPType::hotp, "Python", "py@example.org",
                                    "12345678901234567890", marlockCommon::OTPAlgorithm::sha512, 8, 30, 7}));
    // RFC 4226 test key, SHA-512 here: the decoded token computes codes.
    EXPECT_EQ(token->password().size(), 8);
}
