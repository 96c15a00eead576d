// Sync through the command line between two computers: two profiles of their own (settings,
// keyring services, bundle identifier) that share only a cloud folder, as two machines sharing a
// Syncthing folder would. Each command is a real marlock process on the private bus and keyring.
#include "tests/apps/AppsTestSupport.h"

#include "marlockCompanionCommon/platform/keychain/KeychainBackend.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QUuid>

#include <gtest/gtest.h>

namespace {

struct Outcome {
    int status = -1;
    QString out, err;
    QJsonDocument json() const { return QJsonDocument::fromJson(out.toUtf8()); }
};

// One computer: its own folders and identities, the shared cloud folder.
class Computer {
public:
    explicit Computer(const QString& cloudFolder)
        : bundle_(QStringLiteral("test.marlock.%1").arg(QUuid::createUuid().toString(QUuid::Id128))) {
        environment_ = QProcessEnvironment::systemEnvironment();
        environment_.insert("XDG_CONFIG_HOME", home_.filePath("config"));
        environment_.insert("XDG_DATA_HOME", home_.filePath("data"));
        environment_.insert("MARLOCK_BUNDLE_IDENTIFIER", bundle_);
        environment_.insert("MARLOCK_APPLICATION_GROUP", bundle_ + ".group");
        environment_.insert("MARLOCK_KEYCHAIN_IDENTIFIER", bundle_ + ".keychain");
        environment_.insert("MARLOCK_CLOUD_FOLDER", cloudFolder);
    }
    ~Computer() {
        // Its tokens, their order and its saved passcode, also when the test failed.
        auto backend = platform::makeSecretServiceKeychainBackend();
        std::vector<platform::KeychainRecord> items;
        if (backend->find({platform::KeychainClass::genericPassword, std::nullopt, std::nullopt},
                          platform::KeychainMatch{}, &items) == platform::KeychainStatusCode::success)
            for (const auto& record : items)
                if (record.item.service.startsWith(bundle_))
                    (void)backend->remove({record.item.itemClass, record.item.service, record.item.account});
    }

    Outcome marlock(const QStringList& arguments, const QByteArray& input = {}) const {
        QProcess process;
        process.setProcessEnvironment(environment_);
        process.start(MARLOCK_CLI_PATH, arguments);
        process.write(input);
        process.closeWriteChannel();
        EXPECT_TRUE(process.waitForFinished(60000)) << arguments.join(' ').toStdString();
        return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
                QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError())};
    }

    QStringList issuers() const {
        QStringList result;
        for (const auto& token : marlock({"list", "--json"}).json().array())
            result << token[QStringLiteral("issuer")].toString();
        return result;
    }

    bool syncEnabled() const { return marlock({"sync", "status", "--json"}).json()["enabled"].toBool(); }

private:
    QTemporaryDir home_;
    QString bundle_;
    QProcessEnvironment environment_;
};

QByteArray cloudData(const QString& folder) {
    QFile file(folder + "/tokens");
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

TEST(CliSync, TokensTravelBetweenComputersAndAWrongPasscodeChangesNothing) {
    QTemporaryDir cloud;
    const Computer laptop(cloud.path()), desktop(cloud.path());
    ASSERT_EQ(laptop.marlock({"add", "otpauth://totp/Alpha:ann?secret=MFRGGZDFMZTWQ2LK"}).status, 0);
    ASSERT_EQ(desktop.marlock({"add", "otpauth://totp/Beta:ben?secret=KRSXG5CTMVRXEZLU"}).status, 0);

    // The first computer chooses the passcode; its tokens are uploaded, encrypted.
    const Outcome first = laptop.marlock({"sync", "enable"}, "correct horse\n");
    ASSERT_EQ(first.status, 0) << first.err.toStdString();
    const QByteArray uploaded = cloudData(cloud.path());
    ASSERT_FALSE(uploaded.isEmpty());
    EXPECT_FALSE(uploaded.contains("Alpha"));

    // A wrong passcode on the second is explained and changes nothing anywhere.
    const Outcome wrong = desktop.marlock({"sync", "enable"}, "battery staple\n");
    EXPECT_EQ(wrong.status, 1);
    EXPECT_TRUE(wrong.err.contains("does not open the synced tokens")) << wrong.err.toStdString();
    EXPECT_TRUE(wrong.err.contains("marlock sync reset --yes")) << wrong.err.toStdString();
    EXPECT_FALSE(desktop.syncEnabled());
    EXPECT_EQ(desktop.issuers(), QStringList{"Beta"});
    EXPECT_EQ(cloudData(cloud.path()), uploaded);

    // The right one joins both computers' tokens, on both.
    const Outcome joined = desktop.marlock({"sync", "enable"}, "correct horse\n");
    ASSERT_EQ(joined.status, 0) << joined.err.toStdString();
    EXPECT_EQ(desktop.issuers(), (QStringList{"Alpha", "Beta"}));
    EXPECT_EQ(laptop.issuers(), (QStringList{"Alpha", "Beta"}));

    // Renames and removals travel too, in both directions.
    ASSERT_EQ(laptop.marlock({"rename", "Alpha", "--issuer", "Alpha Bank"}).status, 0);
    EXPECT_EQ(desktop.issuers(), (QStringList{"Alpha Bank", "Beta"}));
    ASSERT_EQ(desktop.marlock({"remove", "Beta", "--yes"}).status, 0);
    EXPECT_EQ(laptop.issuers(), QStringList{"Alpha Bank"});

    // A new passcode: the old one opens nothing any more.
    ASSERT_EQ(laptop.marlock({"sync", "change-passcode"}, "tr0ub4dor\n").status, 0);
    const Outcome stale = desktop.marlock({"list"});
    EXPECT_TRUE(stale.err.contains("sync: The sync passcode does not open")) << stale.err.toStdString();
    EXPECT_TRUE(desktop.marlock({"sync", "status"}).out.contains("does not open"));

    // Erasing needs --yes; then the data is gone and sync is off, the tokens stay.
    EXPECT_EQ(laptop.marlock({"sync", "reset"}).status, 2);
    EXPECT_FALSE(cloudData(cloud.path()).isEmpty());
    ASSERT_EQ(laptop.marlock({"sync", "reset", "--yes"}).status, 0);
    EXPECT_FALSE(QFile::exists(cloud.path() + "/tokens"));
    EXPECT_FALSE(laptop.syncEnabled());
    EXPECT_EQ(laptop.issuers(), QStringList{"Alpha Bank"});
}

} // namespace
