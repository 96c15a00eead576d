// What only the WebDAV backend does, beyond the store's contract (run against it with the other
// backends): writes that race another device's, refused credentials and certificates, a server
// that stops and comes back, servers that answer with garbage, and the settings that choose it.
#include "tests/platform/storage/CloudStoreTestSupport.h"
#include "tests/platform/storage/webdav/ApacheServer.h"

#include "marlockCompanionCommon/platform/keychain/KeychainServices.h"
#include "marlockCompanionCommon/platform/runtime/Identity.h"
#include "marlockCompanionCommon/platform/runtime/SystemLog.h"
#include "marlockCompanionCommon/platform/storage/UserDefaults.h"
#include "marlockCompanionCommon/platform/storage/webdav/internal/WebdavMultistatus.h"

#include <QFile>
#include <QSslKey>
#include <QSslServer>
#include <QSslSocket>
#include <QTimer>

using namespace platform;
using cloudtest::Announcements;
using testsupport::waitUntil;
using webdavtest::ApacheServer;
using namespace std::chrono_literals;

namespace {

constexpr qint64 serverChange = 0;

class Webdav : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(server().start()) << server().problem().toStdString(); }
    static ApacheServer& server() { return ApacheServer::shared(); }

    std::unique_ptr<UbiquitousKeyValueStore> makeStore(const WebdavConfiguration& configuration) {
        return std::make_unique<UbiquitousKeyValueStore>(
            makeWebdavUbiquitousKeyValueStoreBackend(configuration));
    }
    std::unique_ptr<UbiquitousKeyValueStore> makeStore() {
        return makeStore(webdavtest::configurationFor(server(), collection));
    }
    QString onServer(const QString& key) const {
        return server().davFolder() + QLatin1Char('/') + collection + QLatin1Char('/') + key;
    }
    QByteArray contentOnServer(const QString& key) const {
        QFile file(onServer(key));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(missing)");
    }
    // Another device's write, made through the server's own storage.
    void writeOnServer(const QString& key, const QByteArray& value) {
        ASSERT_TRUE(QDir().mkpath(server().davFolder() + QLatin1Char('/') + collection));
        cloudtest::deliverFile(server().davFolder() + QLatin1Char('/') + collection, key, value);
    }

    const QString collection = webdavtest::freshCollection();
    QStringList log;
    SystemLogCapture capture{[this](const QString& line) { log << line; }};
};

bool logHas(const QStringList& log, const QString& fragment) {
    return std::any_of(log.begin(), log.end(), [&](const QString& line) { return line.contains(fragment); });
}

TEST_F(Webdav, AWriteRacingAnotherDevicesWriteLosesVisiblyAndTheServersValueStays) {
    // Long polls: the race is decided by the tags alone, not by a listing in between.
    WebdavConfiguration slowPolls = webdavtest::configurationFor(server(), collection);
    slowPolls.pollInterval = 1h;
    auto store = makeStore(slowPolls);
    Announcements heard(store.get());
    ASSERT_TRUE(
        waitUntil([&] { return QFile::exists(server().davFolder() + QLatin1Char('/') + collection); }));

    // Created on both sides at once: the other device's new key is there first.
    writeOnServer(QStringLiteral("created"), "theirs");
    store->setData("mine", QStringLiteral("created"));
    ASSERT_TRUE(heard.waitFor(serverChange, QStringLiteral("created")));
    EXPECT_EQ(store->dataForKey(QStringLiteral("created")), "theirs");
    EXPECT_EQ(contentOnServer(QStringLiteral("created")), "theirs");

    // Replaced on both sides: our write names the version we saw, which is no longer there.
    store->setData("first", QStringLiteral("tokens"));
    ASSERT_TRUE(waitUntil([&] { return contentOnServer(QStringLiteral("tokens")) == "first"; }));
    testsupport::spinEventLoop(300ms); // our read-back of the new tag is done
    writeOnServer(QStringLiteral("tokens"), "their update");
    store->setData("our update", QStringLiteral("tokens"));
    ASSERT_TRUE(heard.waitFor(serverChange, QStringLiteral("tokens")));
    EXPECT_EQ(store->dataForKey(QStringLiteral("tokens")), "their update");
    EXPECT_EQ(contentOnServer(QStringLiteral("tokens")), "their update");
    EXPECT_TRUE(logHas(log, QStringLiteral("the write of \"tokens\" was not made")))
        << log.join('\n').toStdString();

    // The news arrives while our write waits behind a listing: the listing's fresh tag must not
    // let our write replace a value the store never saw.
    heard.heard.clear();
    writeOnServer(QStringLiteral("tokens"), "their second");
    store->synchronize();
    store->setData("ours, made before hearing", QStringLiteral("tokens"));
    ASSERT_TRUE(heard.waitFor(serverChange, QStringLiteral("tokens")));
    EXPECT_EQ(store->dataForKey(QStringLiteral("tokens")), "their second");
    EXPECT_EQ(contentOnServer(QStringLiteral("tokens")), "their second");

    // Without a race, a write right after our own (its tag still weak on Apache) goes through.
    heard.heard.clear();
    store->setData("again", QStringLiteral("tokens"));
    store->setData("and again", QStringLiteral("tokens"));
    ASSERT_TRUE(waitUntil([&] { return contentOnServer(QStringLiteral("tokens")) == "and again"; }, 10s));
    EXPECT_TRUE(heard.heard.empty());
}

TEST_F(Webdav, RefusedCredentialsAndCertificatesKeepWritesLocalAndThePasswordIsNeverLogged) {
    const WebdavConfiguration good = webdavtest::configurationFor(server(), collection);
    struct Case {
        const char* name;
        std::function<void(WebdavConfiguration&)> change;
        QString logged;
        bool kept = true; // the write waits for the problem to be solved
    };
    const QByteArray otherFingerprint = QByteArray(32, '\x5a');
    const std::vector<Case> cases = {
        {"wrong password", [](WebdavConfiguration& c) { c.password = QStringLiteral("not the password"); },
         QStringLiteral("refused the credentials of \"ann\" (HTTP 401)")},
        {"self-signed and not pinned", [](WebdavConfiguration& c) { c.pinnedCertificateSha256.clear(); },
         QStringLiteral("is not trusted")},
        {"another certificate pinned",
         [&](WebdavConfiguration& c) { c.pinnedCertificateSha256 = otherFingerprint; },
         QStringLiteral("is not trusted")},
        {"plain http", [](WebdavConfiguration& c) { c.serverUrl.setScheme(QStringLiteral("http")); },
         QStringLiteral("is not https"), false},
    };
    for (const Case& refused : cases) {
        SCOPED_TRACE(refused.name);
        log.clear();
        WebdavConfiguration configuration = good;
        refused.change(configuration);
        auto store = makeStore(configuration);
        store->setData("refused", QStringLiteral("tokens"));
        EXPECT_TRUE(waitUntil([&] { return logHas(log, refused.logged); })) << log.join('\n').toStdString();
        if (refused.kept)
            EXPECT_EQ(store->dataForKey(QStringLiteral("tokens")), "refused")
                << "the write waits, kept locally";
        else
            EXPECT_TRUE(waitUntil([&] { return !store->dataForKey(QStringLiteral("tokens")); }))
                << "a configuration that cannot work ends its writes";
        EXPECT_EQ(contentOnServer(QStringLiteral("tokens")), "(missing)");
        for (const QString& line : log) {
            EXPECT_FALSE(line.contains(configuration.password)) << line.toStdString();
            EXPECT_FALSE(line.contains(
                QString::fromLatin1((configuration.user + ':' + configuration.password).toUtf8().toBase64())))
                << line.toStdString();
        }
    }
    // The same server with the right password and pin takes the write.
    auto store = makeStore(good);
    store->setData("accepted", QStringLiteral("tokens"));
    EXPECT_TRUE(waitUntil([&] { return contentOnServer(QStringLiteral("tokens")) == "accepted"; }));
    for (const QString& line : log)
        EXPECT_FALSE(line.contains(good.password)) << line.toStdString();
}

TEST_F(Webdav, AStoppedServerKeepsLocalWritesWaitingUntilItIsBack) {
    auto store = makeStore();
    store->setData("before", QStringLiteral("tokens"));
    ASSERT_TRUE(waitUntil([&] { return contentOnServer(QStringLiteral("tokens")) == "before"; }));

    server().stop();
    store->setData("while away", QStringLiteral("tokens"));
    EXPECT_TRUE(waitUntil([&] { return logHas(log, QStringLiteral("trying again later")); }))
        << log.join('\n').toStdString();
    EXPECT_EQ(store->dataForKey(QStringLiteral("tokens")), "while away") << "the local value is kept";

    ASSERT_TRUE(server().start()) << server().problem().toStdString();
    store->synchronize(); // as the manager does when asked to: no waiting for the back-off
    EXPECT_TRUE(waitUntil([&] { return logHas(log, QStringLiteral("answers again")); }, 10s));
    EXPECT_EQ(contentOnServer(QStringLiteral("tokens")), "while away");
}

// A server on 127.0.0.1 that answers every request with one kind of nonsense.
class HostileServer : public QObject {
public:
    enum class Kind { garbage, huge, drip, unavailable, redirect };
    HostileServer(Kind kind, const ApacheServer& borrowedIdentity)
        : kind_(kind) {
        QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
        QFile key(borrowedIdentity.keyPath());
        (void)key.open(QIODevice::ReadOnly);
        tls.setPrivateKey(QSslKey(key.readAll(), QSsl::Ec));
        tls.setLocalCertificate(QSslCertificate::fromPath(borrowedIdentity.certificatePath()).value(0));
        server_.setSslConfiguration(tls);
        connect(&server_, &QTcpServer::pendingConnectionAvailable, this, [this] {
            while (QTcpSocket* socket = server_.nextPendingConnection())
                connect(socket, &QIODevice::readyRead, this, [this, socket] { answer(socket); });
        });
        (void)server_.listen(QHostAddress::LocalHost);
    }
    QUrl url() const { return QUrl(QStringLiteral("https://127.0.0.1:%1/dav/").arg(server_.serverPort())); }

private:
    void answer(QTcpSocket* socket) {
        if (!socket->readAll().contains("\r\n\r\n") || socket->property("answered").toBool())
            return;
        socket->setProperty("answered", true);
        switch (kind_) {
        case Kind::garbage: {
            const QByteArray xml =
                "<D:multistatus xmlns:D=\"DAV:\"><D:response><D:href>/dav/x/</D:href><oops";
            socket->write("HTTP/1.1 207 Multi-Status\r\nContent-Length: " + QByteArray::number(xml.size()) +
                          "\r\n\r\n" + xml);
            break;
        }
        case Kind::huge: {
            // Twice the most a listing may be, in chunks, and never an end.
            QByteArray body = "HTTP/1.1 207 Multi-Status\r\nTransfer-Encoding: chunked\r\n\r\n";
            for (int i = 0; i < 128; ++i)
                body += "10000\r\n" + QByteArray(0x10000, '<') + "\r\n";
            socket->write(body);
            break;
        }
        case Kind::drip: {
            socket->write("HTTP/1.1 207 Multi-Status\r\nContent-Length: 100000\r\n\r\n<");
            auto* drip = new QTimer(socket);
            connect(drip, &QTimer::timeout, socket, [socket] { socket->write("<"); });
            drip->start(50);
            break;
        }
        case Kind::unavailable:
            socket->write("HTTP/1.1 503 Service Unavailable\r\nContent-Length: 0\r\n\r\n");
            break;
        case Kind::redirect:
            socket->write("HTTP/1.1 301 Moved Permanently\r\nLocation: https://127.0.0.1:1/elsewhere/\r\n"
                          "Content-Length: 0\r\n\r\n");
            break;
        }
    }
    const Kind kind_;
    QSslServer server_;
};

TEST_F(Webdav, HostileServersGiveLogLinesNeverCrashesAndLocalValuesStay) {
    const std::vector<std::pair<HostileServer::Kind, QString>> kinds = {
        {HostileServer::Kind::garbage, QStringLiteral("is not a valid multistatus reply")},
        {HostileServer::Kind::huge, QStringLiteral("answered with too much data")},
        {HostileServer::Kind::drip, QStringLiteral("no complete answer within 1000 ms")},
        {HostileServer::Kind::unavailable, QStringLiteral("HTTP 503")},
        {HostileServer::Kind::redirect, QStringLiteral("HTTP 301")},
    };
    for (const auto& [kind, expected] : kinds) {
        SCOPED_TRACE(expected.toStdString());
        log.clear();
        HostileServer hostile(kind, server());
        WebdavConfiguration configuration = webdavtest::configurationFor(server(), collection);
        configuration.serverUrl = hostile.url();
        // Short only where the time limit is what is tested: 8 MiB over TLS takes a while under ASan.
        configuration.requestTimeout = kind == HostileServer::Kind::drip ? 1s : 60s;
        auto store = makeStore(configuration);
        store->setData("local", QStringLiteral("tokens"));
        EXPECT_TRUE(waitUntil([&] { return logHas(log, expected); }, 60s)) << log.join('\n').toStdString();
        EXPECT_EQ(store->dataForKey(QStringLiteral("tokens")), "local");
        EXPECT_EQ(store->allKeys(), QStringList{"tokens"}) << "nothing from the server was taken in";
    }
}

TEST(WebdavMultistatus, RepliesAreReadOrRefusedWithAReason) {
    namespace ms = internal::WebdavMultistatus;
    const QByteArray apache = R"(<?xml version="1.0" encoding="utf-8"?>
<D:multistatus xmlns:D="DAV:" xmlns:ns0="DAV:">
<D:response xmlns:lp1="DAV:"><D:href>/dav/c/</D:href>
<D:propstat><D:prop><lp1:getetag>W/"1000-6"</lp1:getetag></D:prop><D:status>HTTP/1.1 200 OK</D:status></D:propstat></D:response>
<D:response><D:href>https://h.example/dav/c/a%252Fb</D:href>
<D:propstat><D:prop><D:getetag>"5-7"</D:getetag></D:prop><D:status>HTTP/1.1 200 OK</D:status></D:propstat></D:response>
<x:response xmlns:x="DAV:"><x:href>/dav/c/noTag</x:href>
<x:propstat><x:prop><x:getetag>"stale"</x:getetag></x:prop><x:status>HTTP/1.1 404 Not Found</x:status></x:propstat></x:response>
</D:multistatus>)";
    QString problem;
    const auto members = ms::parse(apache, &problem);
    ASSERT_TRUE(members) << problem.toStdString();
    ASSERT_EQ(members->size(), 3u);
    EXPECT_EQ(members->at(0).etag, "W/\"1000-6\"");
    EXPECT_EQ(members->at(1).etag, "\"5-7\"");
    EXPECT_EQ(members->at(2).etag, "") << "a tag from a failed propstat is not a tag";
    EXPECT_EQ(ms::memberName(members->at(0).href, "/dav/c/"), QString());
    EXPECT_EQ(ms::memberName(members->at(1).href, "/dav/c/"), QStringLiteral("a%2Fb"));
    EXPECT_EQ(ms::memberName(QStringLiteral("/dav/c/sub/x"), "/dav/c/"), std::nullopt);
    EXPECT_EQ(ms::memberName(QStringLiteral("/dav/other/x"), "/dav/c/"), std::nullopt);
    EXPECT_EQ(ms::memberName(QStringLiteral("ftp://h/dav/c/x"), "/dav/c/"), std::nullopt);

    QByteArray deep = "<D:multistatus xmlns:D=\"DAV:\">";
    for (int i = 0; i < ms::maximumDepth; ++i)
        deep += "<D:a>";
    const std::vector<std::pair<QByteArray, QString>> refused = {
        {"", "empty"},
        {"<D:multistatus xmlns:D=\"DAV:\"><D:response>", "malformed"},
        {"<multistatus/>", "not a multistatus"},
        {"<!DOCTYPE m [<!ENTITY a \"aaaa\">]><D:multistatus xmlns:D=\"DAV:\">&a;</D:multistatus>",
         "document type"},
        {deep, "nests deeper"},
        {"<D:multistatus xmlns:D=\"DAV:\"><D:response><D:href>/a</D:href><D:href>/b</D:href></D:response>"
         "</D:multistatus>",
         "2 hrefs"},
        {QByteArray(ms::maximumSize + 1, ' '), "over"},
    };
    for (const auto& [document, why] : refused) {
        problem.clear();
        EXPECT_FALSE(ms::parse(document, &problem)) << why.toStdString();
        EXPECT_TRUE(problem.contains(why)) << problem.toStdString();
    }
}

TEST(WebdavSettings, SettingsChooseTheBackendAndThePasswordLivesOnlyInTheKeychain) {
    testsupport::ScopedIsolatedHome home;
    KeychainServices::setShared(std::make_shared<KeychainServices>(makeMemoryKeychainBackend()));
    struct RestoreKeychain {
        ~RestoreKeychain() { KeychainServices::setShared(nullptr); }
    } restore;
    UserDefaults* suite = UserDefaults::suiteNamed(Identity::applicationGroup());
    ASSERT_NE(suite, nullptr);
    EXPECT_FALSE(WebdavConfiguration::isSelected(suite));

    const QUrl url(QStringLiteral("https://cloud.example.org/remote.php/dav/files/ann/"));
    const QString password = QStringLiteral("app-password-4f9c");
    suite->setObject(QStringLiteral("webdav"), WebdavConfiguration::backendKey);
    suite->setObject(url.toString(), WebdavConfiguration::urlKey);
    suite->setObject(QStringLiteral("Marlock Tokens"), WebdavConfiguration::collectionKey);
    suite->setObject(QStringLiteral("ann"), WebdavConfiguration::userKey);
    suite->setObject(QStringLiteral("AB:cd:") + QString(60, QLatin1Char('0')),
                     WebdavConfiguration::certificateKey);
    ASSERT_EQ(WebdavConfiguration::savePassword(url, QStringLiteral("ann"), QStringLiteral("old")), 0);
    ASSERT_EQ(WebdavConfiguration::savePassword(url, QStringLiteral("ann"), password), 0) << "replaced";
    ASSERT_TRUE(suite->synchronize());

    EXPECT_TRUE(WebdavConfiguration::isSelected(suite));
    const WebdavConfiguration read = WebdavConfiguration::fromSettings(suite);
    EXPECT_EQ(read.password, password);
    EXPECT_EQ(read.pinnedCertificateSha256, QByteArray::fromHex("abcd") + QByteArray(30, '\0'));
    EXPECT_EQ(read.collectionUrl().toString(QUrl::FullyEncoded),
              QStringLiteral("https://cloud.example.org/remote.php/dav/files/ann/Marlock%20Tokens/"));
    QFile settings(suite->filePath());
    ASSERT_TRUE(settings.open(QIODevice::ReadOnly));
    const QByteArray stored = settings.readAll();
    EXPECT_TRUE(stored.contains("Marlock Tokens")) << "the file read is the settings file";
    EXPECT_FALSE(stored.contains(password.toUtf8()));

    for (const QString& malformed : {QStringLiteral("abc"), QString(63, QLatin1Char('a')) + QLatin1Char('g')})
        EXPECT_TRUE(WebdavConfiguration::parseFingerprint(malformed).isEmpty()) << malformed.toStdString();
}

} // namespace
