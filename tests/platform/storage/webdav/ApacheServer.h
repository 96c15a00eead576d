#pragma once

#include "marlockCompanionCommon/platform/storage/webdav/WebdavConfiguration.h"

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>
#include <QUrl>

namespace webdavtest {

// A real WebDAV server for tests: Apache httpd with mod_dav_fs on 127.0.0.1, over HTTPS with a
// certificate made here, Basic authentication against an htpasswd file made here, its own
// ServerRoot, lock database and logs in a temporary folder. It runs in the foreground as a child
// of the test and is stopped by its pid; nothing of the system's Apache service is used.
class ApacheServer {
public:
    ApacheServer();
    ~ApacheServer();
    ApacheServer(const ApacheServer&) = delete;
    ApacheServer& operator=(const ApacheServer&) = delete;

    // One server for the whole test program, started on first use.
    static ApacheServer& shared();

    // Starts (again, on the same port) and waits until it accepts connections.
    bool start();
    void stop();
    QString problem() const { return problem_; }

    // https://127.0.0.1:PORT/dav/ — collections go below it.
    QUrl url() const;
    // The folder the server keeps /dav/ in: writing a file here is another client's write.
    QString davFolder() const { return root_.path() + QStringLiteral("/www/dav"); }
    QByteArray certificateSha256() const { return certificateSha256_; }
    QString certificatePath() const { return root_.path() + QStringLiteral("/cert.pem"); }
    QString keyPath() const { return root_.path() + QStringLiteral("/key.pem"); }
    QString user() const { return QStringLiteral("ann"); }
    QString password() const { return QStringLiteral("correct horse:battery é"); }
    // Requests the server has answered so far, from its access log.
    int requestCount() const;

private:
    bool prepare();
    QTemporaryDir root_;
    int port_ = 0;
    QByteArray certificateSha256_;
    QProcess process_;
    QString problem_;
    bool prepared_ = false;
};

// A configuration for the collection `collection` of `server`, its certificate pinned, polled
// every 200 ms so that tests hear of changes quickly.
platform::WebdavConfiguration configurationFor(const ApacheServer& server, const QString& collection);
// A collection name no other test uses.
QString freshCollection();

} // namespace webdavtest
