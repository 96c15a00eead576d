// The marlock command line on a demo profile, run as real processes on the private bus and
// keyring, beside a token store in this process.
#include "common/QrCode.h"
#include "common/TokenStore.h"

#include "marlockCommon/Base32.h"
#include "marlockCommon/KeyURI.h"
#include "tests/apps/AppsTestSupport.h"

#include <QDirIterator>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QUuid>

#include <gtest/gtest.h>

#include <csignal>

using companion::TokenStore;
using namespace std::chrono_literals;

namespace {

struct Outcome {
    int status = -1;
    QString out, err;
    QJsonValue json() const {
        const auto document = QJsonDocument::fromJson(out.toUtf8());
        return document.isArray() ? QJsonValue(document.array()) : QJsonValue(document.object());
    }
};

Outcome run(const QString& program, const QStringList& arguments, const QByteArray& input = {}) {
    QProcess process;
    process.start(program, arguments);
    process.write(input);
    process.closeWriteChannel();
    EXPECT_TRUE(process.waitForFinished(60000)) << arguments.join(' ').toStdString();
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

Outcome marlock(const QStringList& arguments, const QByteArray& input = {}) {
    return run(MARLOCK_CLI_PATH, arguments, input);
}

QStringList issuers(const Outcome& list) {
    QStringList result;
    for (const auto& token : list.json().toArray())
        result << token[QStringLiteral("issuer")].toString();
    return result;
}

class CliStore : public ::testing::Test {
protected:
    void SetUp() override {
        qputenv("MARLOCK", MARLOCK_CLI_PATH);
        // The demo profile seeds the profile this test made (the session is already running).
        const Outcome seeded = run(MARLOCK_SOURCE_DIR "/scripts/demo-profile", {"marlock", "list", "--json"});
        ASSERT_EQ(seeded.status, 0) << seeded.err.toStdString();
        ASSERT_EQ(issuers(seeded), (QStringList{"Demo Mail", "Demo Cloud", "Demo Bank", "RFC 6238"}));
    }

    appstest::ScopedProfile profile_;
    QTemporaryDir dir_;
};

TEST_F(CliStore, TokensAreAddedShownCodedRenamedMovedAndRemoved) {
    // By argument, on standard input, and from a QR code drawn by the qrencode tool.
    const QString secret = marlockCommon::Base32::encode(QUuid::createUuid().toRfc4122(), false);
    const QString qrUri = "otpauth://totp/Pictured:carol?secret=" + secret + "&issuer=Pictured";
    const QString picture = dir_.filePath("code.png");
    ASSERT_EQ(run("qrencode", {"-o", picture, "-s", "6", qrUri}).status, 0);
    EXPECT_EQ(marlock({"add", "otpauth://totp/Argued:bob?secret=MFRGGZDFMZTWQ2LK"}).status, 0);
    EXPECT_EQ(marlock({"add", "-"}, "otpauth://totp/Piped:dave?secret=KRSXG5CT\n").status, 0);
    const Outcome added = marlock({"add", "--qr", picture, "--json"});
    ASSERT_EQ(added.status, 0) << added.err.toStdString();
    EXPECT_EQ(added.json()[QStringLiteral("position")].toInt(), 7);
    EXPECT_EQ(issuers(marlock({"list", "--json"})).mid(4), (QStringList{"Argued", "Piped", "Pictured"}));

    // The key shows only when asked for, as a key URI or a QR code.
    const Outcome shown = marlock({"show", "Pictured", "--json"});
    EXPECT_FALSE(shown.out.contains(secret));
    EXPECT_FALSE(shown.json().toObject().contains("uri"));
    EXPECT_EQ(shown.json()[QStringLiteral("account")].toString(), "carol");
    const Outcome withUri = marlock({"show", "pictured:CAROL", "--uri", "--json"});
    EXPECT_EQ(withUri.json()[QStringLiteral("uri")].toString(),
              marlockCommon::KeyURI::format(marlockCommon::KeyURI::parse(qrUri)));
    const Outcome withQr = marlock({"show", "7", "--qr"});
    ASSERT_EQ(withQr.status, 0);
    const QString drawing = withQr.out.mid(withQr.out.indexOf("\n\n") + 2);
    EXPECT_EQ(companion::QrCode::decode(appstest::pictureOfDrawing(drawing)),
              std::vector{withUri.json()[QStringLiteral("uri")].toString().toUtf8()});

    // Codes at a fixed time: RFC 6238's SHA1 key gives 94287082 at 59 s, grouped with the
    // demo's space in text, as computed in JSON.
    const Outcome codes = marlock({"codes", "--time", "59", "--json"});
    ASSERT_EQ(codes.status, 0);
    EXPECT_EQ(codes.json()[3][QStringLiteral("code")].toString(), "94287082");
    EXPECT_EQ(codes.json()[3][QStringLiteral("remaining")].toDouble(), 1.0);
    EXPECT_TRUE(
        marlock({"codes", "--time", "59"}).out.contains(QRegularExpression("RFC 6238.*  942 870 82  1 s")));

    EXPECT_EQ(marlock({"rename", "RFC 6238", "--issuer", "RFC", "--account", "test"}).status, 0);
    EXPECT_EQ(marlock({"move", "RFC:test", "1"}).status, 0);
    EXPECT_EQ(issuers(marlock({"list", "--json"})).mid(0, 2), (QStringList{"RFC", "Demo Mail"}));

    const Outcome unconfirmed = marlock({"remove", "Demo Bank"});
    EXPECT_EQ(unconfirmed.status, 2);
    EXPECT_TRUE(unconfirmed.err.contains("--yes")) << unconfirmed.err.toStdString();
    EXPECT_TRUE(issuers(marlock({"list", "--json"})).contains("Demo Bank"));
    EXPECT_EQ(marlock({"remove", "Demo Bank", "--yes"}).status, 0);
    EXPECT_FALSE(issuers(marlock({"list", "--json"})).contains("Demo Bank"));

    // Nothing of a token lands in a plain file: not in the settings, not anywhere under the home
    // folders (the keyring's own file is encrypted).
    QStringList folders{profile_.path(), qEnvironmentVariable("HOME")};
    for (const QString& folder : folders)
        for (QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
             it.hasNext();) {
            QFile file(it.next());
            if (!file.open(QIODevice::ReadOnly))
                continue;
            const QByteArray content = file.readAll();
            EXPECT_FALSE(content.contains(secret.toUtf8())) << file.fileName().toStdString();
            EXPECT_FALSE(content.contains("Pictured")) << file.fileName().toStdString();
        }
}

TEST_F(CliStore, BadInputIsExplainedAndChangesNothing) {
    EXPECT_EQ(marlock({"add", "otpauth://totp/Twin:a?secret=MFRGGZDF"}).status, 0);
    EXPECT_EQ(marlock({"add", "otpauth://totp/Twin:b?secret=MFRGGZDG"}).status, 0);
    const QString notQr = dir_.filePath("gradient.png"), twoQr = dir_.filePath("two.png");
    QImage gradient(300, 200, QImage::Format_RGB32);
    for (int y = 0; y < gradient.height(); ++y)
        for (int x = 0; x < gradient.width(); ++x)
            gradient.setPixel(x, y, qRgb(x % 256, y, (x * y) % 256));
    ASSERT_TRUE(gradient.save(notQr));
    ASSERT_TRUE(appstest::sideBySide(appstest::qrPicture("otpauth://totp/One?secret=MFRGGZDF"),
                                     appstest::qrPicture("otpauth://totp/Two?secret=MFRGGZDG"))
                    .save(twoQr));
    const Outcome listBefore = marlock({"list", "--json"});
    const Outcome preferencesBefore = marlock({"preferences", "--json"});

    const struct {
        QStringList arguments;
        int status;
        const char* message;
    } cases[] = {
        {{"add", "otpauth://totp/x?secret=!!!"}, 1, "marlock add: Not a token's key URI (otpauth://…): "},
        {{"add", "https://example.org/?secret=MFRGGZDF"}, 1, "marlock add: Not a token's key URI"},
        {{"add", "--qr", notQr}, 1, "marlock add: No QR code found in"},
        {{"add", "--qr", twoQr}, 1, "holds several QR codes"},
        {{"add", "--qr", dir_.filePath("missing.png")}, 1, "is not a picture that can be read"},
        {{"add", "otpauth://totp/Demo%20Mail:alice%40example.org?secret=JBSWY3DPEHPK3PXP&issuer=Demo%20Mail"},
         1,
         "is already stored"},
        {{"add"}, 2, "give either a key URI or --qr"},
        {{"show", "99"}, 1, "there is no token number 99"},
        {{"show", "twin"}, 1, "could be any of 5. Twin (a), 6. Twin (b)"},
        {{"show", "Nobody"}, 1, "no token is called \"Nobody\""},
        {{"move", "1", "9"}, 1, "Position 9 is outside 1 to 6"},
        {{"rename", "1"}, 2, "give --issuer, --account or both"},
        {{"codes", "--watch", "--json"}, 2, "--watch"},
        {{"preferences", "set", "animateCodeChanges", "maybe"}, 1, "is true or false"},
        {{"preferences", "set", "colour", "1"}, 2, "no preference is called \"colour\""},
    };
    for (const auto& c : cases) {
        const Outcome outcome = marlock(c.arguments);
        EXPECT_EQ(outcome.status, c.status) << c.arguments.join(' ').toStdString();
        EXPECT_TRUE(outcome.err.contains(c.message)) << outcome.err.toStdString();
    }
    EXPECT_EQ(marlock({"list", "--json"}).out, listBefore.out);
    EXPECT_EQ(marlock({"preferences", "--json"}).out, preferencesBefore.out);
}

TEST_F(CliStore, PreferencesAreSharedAndAnnounced) {
    EXPECT_EQ(marlock({"preferences", "set", "changeColorWhenCodeWillChange", "yes"}).status, 0);
    EXPECT_EQ(marlock({"preferences", "set", "separatorString", "-"}).status, 0);
    EXPECT_EQ(marlock({"preferences", "get", "separatorString"}).out, "\"-\"\n");
    const QJsonObject all = marlock({"preferences", "--json"}).json().toObject();
    EXPECT_EQ(all[QStringLiteral("separatorString")].toString(), "-");
    EXPECT_EQ(all[QStringLiteral("changeColorWhenCodeWillChange")].toBool(), true);
    EXPECT_TRUE(all.contains("animateCodeChanges"));
    EXPECT_TRUE(marlock({"codes", "--time", "59"}).out.contains("942-870-82"));
}

TEST_F(CliStore, ChangesReachTheOtherProcessesAtOnce) {
    TokenStore store;
    ASSERT_TRUE(store.reload());
    std::vector<TokenStore::ChangeOrigin> heard;
    QObject::connect(&store, &TokenStore::tokensChanged, [&](auto origin) { heard.push_back(origin); });
    // A command that ends right after its change is still heard.
    ASSERT_EQ(marlock({"add", "-"}, "otpauth://totp/FromCli?secret=MFRGGZDF").status, 0);
    ASSERT_TRUE(testsupport::waitUntil([&] { return !heard.empty(); }));
    EXPECT_EQ(heard.front(), TokenStore::ChangeOrigin::elsewhere);
    EXPECT_EQ(store.tokens().back().displayName(), "FromCli");

    // The live view, here into a pipe, shows a token this process adds: it only rereads the
    // keychain when a change is announced.
    QProcess watch;
    watch.start(MARLOCK_CLI_PATH, {"codes", "--watch"});
    QByteArray output;
    const auto shows = [&](const QByteArray& text) {
        return testsupport::waitUntil([&] {
            output += watch.readAllStandardOutput();
            return output.contains(text);
        });
    };
    ASSERT_TRUE(shows("FromCli"));
    marlockCommon::TokenRecord record;
    record.issuer = "FromStore";
    record.secret = "from-store-secret";
    ASSERT_TRUE(store.add(record));
    EXPECT_TRUE(shows("FromStore"));
    ::kill(static_cast<pid_t>(watch.processId()), SIGINT);
    ASSERT_TRUE(watch.waitForFinished(10000));
    EXPECT_EQ(watch.exitStatus(), QProcess::NormalExit) << "Ctrl-C ends the view cleanly";
    EXPECT_EQ(watch.exitCode(), 0);
}

} // namespace
