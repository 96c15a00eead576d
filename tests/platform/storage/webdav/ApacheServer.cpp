#include "tests/platform/storage/webdav/ApacheServer.h"

#include "tests/support/FreePort.h"
#include "tests/support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QSslCertificate>
#include <QTcpSocket>
#include <QUuid>

#include <csignal>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace webdavtest {
namespace {

const QString modules = QStringLiteral("/usr/lib/apache2/modules/");

bool run(const QString& program, const QStringList& arguments, const QByteArray& input, QString* problem) {
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    process.write(input);
    process.closeWriteChannel();
    if (process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit &&
        process.exitCode() == 0)
        return true;
    *problem = program + QStringLiteral(" failed: ") + QString::fromLocal8Bit(process.readAll());
    return false;
}

} // namespace

ApacheServer::ApacheServer() = default;

ApacheServer::~ApacheServer() {
    stop();
}

ApacheServer& ApacheServer::shared() {
    static ApacheServer server;
    return server;
}

QUrl ApacheServer::url() const {
    return QUrl(QStringLiteral("https://127.0.0.1:%1/dav/").arg(port_));
}

bool ApacheServer::prepare() {
    const QString root = root_.path();
    if (!QDir(root).mkpath(QStringLiteral("www/dav")) || !QDir(root).mkpath(QStringLiteral("logs"))) {
        problem_ = QStringLiteral("cannot make the server's folders");
        return false;
    }
    if (!run(QStringLiteral("openssl"),
             {"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
              "-keyout", root + "/key.pem", "-out", root + "/cert.pem", "-days", "2", "-subj",
              "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1", "-addext",
              "basicConstraints=critical,CA:FALSE"},
             {}, &problem_))
        return false;
    // bcrypt at its lowest cost: every request checks the password, and the benchmarks count them.
    if (!run(QStringLiteral("htpasswd"), {"-i", "-c", "-B", "-C", "4", root + "/htpasswd", user()},
             password().toUtf8(), &problem_))
        return false;
    const QList<QSslCertificate> certificates = QSslCertificate::fromPath(root + QStringLiteral("/cert.pem"));
    if (certificates.isEmpty()) {
        problem_ = QStringLiteral("the certificate made for the server cannot be read");
        return false;
    }
    certificateSha256_ = certificates.first().digest(QCryptographicHash::Sha256);
    port_ = testsupport::freePort();

    QString config;
    for (const char* module : {"mpm_event", "authn_core", "authn_file", "authz_core", "authz_user",
                               "auth_basic", "dav", "dav_fs", "ssl", "socache_shmcb"})
        config += QStringLiteral("LoadModule %1_module %2mod_%1.so\n").arg(QLatin1String(module), modules);
    config += QStringLiteral(R"conf(ServerRoot "%1"
PidFile "%1/httpd.pid"
Listen 127.0.0.1:%2
ServerName 127.0.0.1
StartServers 1
ServerLimit 1
ThreadsPerChild 8
MaxRequestWorkers 8
ErrorLog "%1/logs/error.log"
LogFormat "%m %U %>s" short
CustomLog "%1/logs/access.log" short
DAVLockDB "%1/DAVLock"
SSLEngine on
SSLCertificateFile "%1/cert.pem"
SSLCertificateKeyFile "%1/key.pem"
SSLSessionCache "shmcb:%1/ssl_scache(512000)"
DocumentRoot "%1/www"
<Directory "%1/www/dav">
    Dav On
    AuthType Basic
    AuthName "marlock test"
    AuthUserFile "%1/htpasswd"
    Require valid-user
</Directory>
)conf")
                  .arg(root)
                  .arg(port_);
    QFile file(root + QStringLiteral("/httpd.conf"));
    if (!file.open(QIODevice::WriteOnly) || file.write(config.toUtf8()) != config.toUtf8().size()) {
        problem_ = QStringLiteral("cannot write the server's configuration");
        return false;
    }
    prepared_ = true;
    return true;
}

bool ApacheServer::start() {
    if (process_.state() != QProcess::NotRunning)
        return true;
    if (!prepared_ && !prepare())
        return false;
    process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process_.setStandardOutputFile(QProcess::nullDevice());
    // Should the test die without stopping it, the kernel stops the server too.
    process_.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
    process_.start(QStringLiteral("/usr/sbin/apache2"),
                   {"-f", root_.path() + QStringLiteral("/httpd.conf"), "-DFOREGROUND"});
    if (!process_.waitForStarted()) {
        problem_ = QStringLiteral("apache2 did not start: ") + process_.errorString();
        return false;
    }
    const bool ready = testsupport::waitUntil(
        [&] {
            if (process_.state() == QProcess::NotRunning)
                return true;
            QTcpSocket probe;
            probe.connectToHost(QStringLiteral("127.0.0.1"), static_cast<quint16>(port_));
            return probe.waitForConnected(200);
        },
        std::chrono::seconds(20));
    if (!ready || process_.state() == QProcess::NotRunning) {
        QFile log(root_.path() + QStringLiteral("/logs/error.log"));
        (void)log.open(QIODevice::ReadOnly);
        problem_ = QStringLiteral("apache2 is not serving: ") + QString::fromLocal8Bit(log.readAll());
        stop();
        return false;
    }
    return true;
}

void ApacheServer::stop() {
    if (process_.state() == QProcess::NotRunning)
        return;
    process_.terminate(); // SIGTERM to its pid: Apache stops its children and exits
    if (!process_.waitForFinished(10000)) {
        process_.kill();
        process_.waitForFinished();
    }
}

int ApacheServer::requestCount() const {
    QFile log(root_.path() + QStringLiteral("/logs/access.log"));
    if (!log.open(QIODevice::ReadOnly))
        return 0;
    return int(log.readAll().count('\n'));
}

platform::WebdavConfiguration configurationFor(const ApacheServer& server, const QString& collection) {
    platform::WebdavConfiguration configuration;
    configuration.serverUrl = server.url();
    configuration.collection = collection;
    configuration.user = server.user();
    configuration.password = server.password();
    configuration.pinnedCertificateSha256 = server.certificateSha256();
    configuration.pollInterval = std::chrono::milliseconds(200);
    configuration.requestTimeout = std::chrono::seconds(10);
    return configuration;
}

QString freshCollection() {
    return QStringLiteral("c-") + QUuid::createUuid().toString(QUuid::Id128).left(12);
}

} // namespace webdavtest
