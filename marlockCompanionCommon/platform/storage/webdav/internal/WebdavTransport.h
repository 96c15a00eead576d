#pragma once

#include <QByteArray>
#include <QNetworkAccessManager>
#include <QObject>
#include <QString>
#include <QUrl>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <utility>
#include <vector>

class QNetworkReply;

namespace platform::internal {

// How one request to the WebDAV server ended.
struct WebdavResponse {
    enum class Outcome {
        answered,    // the server answered with `status` (any status: 2xx, 4xx, 5xx alike)
        unreachable, // no answer: refused, reset, DNS, TLS handshake failure other than trust
        timedOut,    // no complete answer within the request's time limit
        untrusted,   // the certificate is neither vouched for by the system nor the pinned one
        tooLarge,    // the answer was longer than the request allowed
    };
    Outcome outcome = Outcome::unreachable;
    int status = 0;
    QByteArray body;
    QByteArray etag; // the ETag header, as sent
    QString problem; // for the log when not answered
};

// Sends the backend's requests: HTTPS with Basic authentication sent with every request (so a
// request costs one round trip), no redirects followed (they could carry the credentials to
// another host), a limit on the time of a whole request (a server that drips bytes does not
// keep it alive) and on the size of its answer. The certificate must be vouched for by the
// system's authorities or, when a fingerprint is pinned, be exactly that certificate.
// Main thread; callbacks come from the event loop, never from inside send().
class WebdavTransport final : public QObject {
public:
    using Headers = std::vector<std::pair<QByteArray, QByteArray>>;
    using Done = std::function<void(const WebdavResponse&)>;

    WebdavTransport(const QString& user, const QString& password, QByteArray pinnedSha256,
                    std::chrono::milliseconds timeout);
    ~WebdavTransport() override;
    WebdavTransport(const WebdavTransport&) = delete;
    WebdavTransport& operator=(const WebdavTransport&) = delete;

    void send(const QByteArray& method, const QUrl& url, const Headers& headers, const QByteArray& body,
              qsizetype maximumAnswer, Done done);

private:
    struct Pending;
    void finish(QNetworkReply* reply);

    QNetworkAccessManager manager_;
    QByteArray authorization_;
    const QByteArray pinnedSha256_;
    const std::chrono::milliseconds timeout_;
    std::map<QNetworkReply*, std::unique_ptr<Pending>> pending_;
};

} // namespace platform::internal
