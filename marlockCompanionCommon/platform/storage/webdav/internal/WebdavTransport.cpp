#include "marlockCompanionCommon/platform/storage/webdav/internal/WebdavTransport.h"

#include <QCryptographicHash>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QTimer>

namespace platform::internal {

struct WebdavTransport::Pending {
    Done done;
    qsizetype maximumAnswer = 0;
    QTimer deadline;
    WebdavResponse::Outcome failure = WebdavResponse::Outcome::answered; // set when we cut it short
    QString problem;
};

WebdavTransport::WebdavTransport(const QString& user, const QString& password, QByteArray pinnedSha256,
                                 std::chrono::milliseconds timeout)
    : authorization_("Basic " + (user + QLatin1Char(':') + password).toUtf8().toBase64())
    , pinnedSha256_(std::move(pinnedSha256))
    , timeout_(timeout) {
    // Credentials go only where this backend sends them: never into Qt's cache of credentials,
    // never to a proxy's or redirect's host.
    manager_.setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);
    manager_.setAutoDeleteReplies(false);
}

WebdavTransport::~WebdavTransport() {
    // Aborting emits finished(): disconnect first so no callback runs into a half-destroyed owner.
    for (auto& [reply, pending] : pending_) {
        reply->disconnect(this);
        reply->abort();
        delete reply;
    }
}

void WebdavTransport::send(const QByteArray& method, const QUrl& url, const Headers& headers,
                           const QByteArray& body, qsizetype maximumAnswer, Done done) {
    QNetworkRequest request(url);
    request.setRawHeader("Authorization", authorization_);
    for (const auto& [name, value] : headers)
        request.setRawHeader(name, value);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    request.setAttribute(QNetworkRequest::AuthenticationReuseAttribute, QNetworkRequest::Manual);

    QNetworkReply* reply = manager_.sendCustomRequest(request, method, body);
    auto pending = std::make_unique<Pending>();
    pending->done = std::move(done);
    pending->maximumAnswer = maximumAnswer;
    Pending* state = pending.get();
    pending_.emplace(reply, std::move(pending));

    auto cut = [reply, state](WebdavResponse::Outcome why, const QString& problem) {
        if (state->failure != WebdavResponse::Outcome::answered)
            return;
        state->failure = why;
        state->problem = problem;
        reply->abort();
    };
    state->deadline.setSingleShot(true);
    connect(&state->deadline, &QTimer::timeout, reply, [cut, this] {
        cut(WebdavResponse::Outcome::timedOut,
            QStringLiteral("no complete answer within %1 ms").arg(timeout_.count()));
    });
    state->deadline.start(timeout_);
    auto checkSize = [cut, state](qint64 received, qint64 announced) {
        if (received > state->maximumAnswer || announced > state->maximumAnswer)
            cut(WebdavResponse::Outcome::tooLarge,
                QStringLiteral("the answer is over %1 bytes").arg(state->maximumAnswer));
    };
    connect(reply, &QNetworkReply::downloadProgress, this, checkSize);
    connect(reply, &QNetworkReply::metaDataChanged, this, [reply, checkSize] {
        checkSize(0, reply->header(QNetworkRequest::ContentLengthHeader).toLongLong());
    });
    connect(reply, &QNetworkReply::sslErrors, this, [this, reply, state](const QList<QSslError>& errors) {
        const QByteArray presented =
            reply->sslConfiguration().peerCertificate().digest(QCryptographicHash::Sha256);
        if (!pinnedSha256_.isEmpty() && presented == pinnedSha256_) {
            reply->ignoreSslErrors(errors);
            return;
        }
        QStringList why;
        for (const QSslError& error : errors)
            why << error.errorString();
        state->failure = WebdavResponse::Outcome::untrusted;
        state->problem = QStringLiteral("the server's certificate (SHA-256 %1) is not trusted: %2")
                             .arg(QString::fromLatin1(presented.toHex(':')), why.join(QStringLiteral("; ")));
    });
    // A pinned certificate is required even when a system authority vouches for another one.
    connect(reply, &QNetworkReply::encrypted, this, [this, reply, cut] {
        if (pinnedSha256_.isEmpty())
            return;
        const QByteArray presented =
            reply->sslConfiguration().peerCertificate().digest(QCryptographicHash::Sha256);
        if (presented != pinnedSha256_)
            cut(WebdavResponse::Outcome::untrusted,
                QStringLiteral("the server's certificate (SHA-256 %1) is not the pinned one")
                    .arg(QString::fromLatin1(presented.toHex(':'))));
    });
    connect(reply, &QNetworkReply::finished, this, [this, reply] { finish(reply); });
}

void WebdavTransport::finish(QNetworkReply* reply) {
    auto node = pending_.extract(reply);
    if (node.empty())
        return;
    std::unique_ptr<Pending> state = std::move(node.mapped());
    state->deadline.stop();
    // The reply lives on until deleteLater() and may still report progress: nothing may reach
    // the state that goes with this function.
    reply->disconnect(this);
    WebdavResponse response;
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (state->failure != WebdavResponse::Outcome::answered) {
        response.outcome = state->failure;
        response.problem = state->problem;
    } else if (status.isValid()) {
        response.outcome = WebdavResponse::Outcome::answered;
        response.status = status.toInt();
        response.body = reply->readAll();
        response.etag = reply->rawHeader("ETag");
        if (response.body.size() > state->maximumAnswer) {
            response = {};
            response.outcome = WebdavResponse::Outcome::tooLarge;
            response.problem = QStringLiteral("the answer is over %1 bytes").arg(state->maximumAnswer);
        }
    } else {
        response.outcome = WebdavResponse::Outcome::unreachable;
        response.problem = reply->errorString();
    }
    reply->deleteLater();
    // Called last: the callback may send the next request or destroy this transport.
    state->done(response);
}

} // namespace platform::internal
