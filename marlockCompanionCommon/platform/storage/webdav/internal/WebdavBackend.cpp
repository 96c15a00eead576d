#include "marlockCompanionCommon/platform/storage/webdav/internal/WebdavBackend.h"

#include "marlockCompanionCommon/platform/runtime/SystemLog.h"
#include "marlockCompanionCommon/platform/storage/UbiquitousKeyValueStore.h"
#include "marlockCompanionCommon/platform/storage/internal/CloudFileNames.h"
#include "marlockCompanionCommon/platform/storage/webdav/internal/WebdavMultistatus.h"

#include <algorithm>

namespace platform::internal {
namespace {

using Reason = UbiquitousKeyValueStoreChangeReason;
using Outcome = WebdavResponse::Outcome;

const QByteArray listingRequest = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                                  "<D:propfind xmlns:D=\"DAV:\"><D:prop><D:getetag/></D:prop></D:propfind>\n";

// One byte past the store's limit is enough for the store to refuse a value as too large.
constexpr qsizetype valueAnswerLimit = UbiquitousKeyValueStore::maximumValueSize + 1;
// Answers to PUT, DELETE and MKCOL carry no more than a short message.
constexpr qsizetype smallAnswerLimit = 64 * 1024;
constexpr int maximumBackoffShift = 4;
// Reading a value again until its tag is strong: a little over Apache's one-second window, and
// not for ever with a server whose tags are always weak.
constexpr std::chrono::milliseconds tagPause(1100);
constexpr int maximumTagRounds = 5;

bool isComparable(const QByteArray& etag) {
    return !etag.isEmpty() && !etag.startsWith("W/");
}

bool isSuccess(int status) {
    return status >= 200 && status < 300;
}

// Why the configuration cannot be used, or empty.
QString problemWith(const WebdavConfiguration& configuration) {
    const QUrl& url = configuration.serverUrl;
    if (!url.isValid() || url.host().isEmpty())
        return QStringLiteral("no valid WebDAV server URL is configured");
    if (url.scheme() != QLatin1String("https"))
        return QStringLiteral("the WebDAV server URL %1 is not https: the password would travel in clear")
            .arg(url.toDisplayString(QUrl::RemoveUserInfo));
    if (configuration.collection.isEmpty() || configuration.collection.contains(QLatin1Char('/')) ||
        configuration.collection == QLatin1String(".") || configuration.collection == QLatin1String(".."))
        return QStringLiteral("the WebDAV collection name \"%1\" is not one folder name")
            .arg(configuration.collection);
    return {};
}

} // namespace

WebdavBackend::WebdavBackend(WebdavConfiguration configuration)
    : configuration_(std::move(configuration))
    , invalid_(problemWith(configuration_))
    , collectionUrl_(configuration_.collectionUrl())
    , transport_(configuration_.user, configuration_.password, configuration_.pinnedCertificateSha256,
                 configuration_.requestTimeout) {
    poll_.setInterval(configuration_.pollInterval);
    connect(&poll_, &QTimer::timeout, this, [this] { enqueueListing(); });
    retry_.setSingleShot(true);
    connect(&retry_, &QTimer::timeout, this, [this] { pump(); });
}

WebdavBackend::~WebdavBackend() = default;

QHash<QString, QByteArray> WebdavBackend::open(Listener* listener) {
    listener_ = listener;
    if (!invalid_.isEmpty()) {
        logProblem(invalid_);
        return {};
    }
    poll_.start();
    enqueueListing();
    return {}; // nothing is known without asking the server: the first listing reports it
}

QUrl WebdavBackend::resourceUrl(const QString& key) const {
    // The resource is named like the folder backend's file; '%' in that name is itself escaped.
    QUrl url = collectionUrl_;
    url.setPath(collectionUrl_.path(QUrl::FullyEncoded) +
                    QString::fromLatin1(QUrl::toPercentEncoding(CloudFileNames::fileNameForKey(key))),
                QUrl::StrictMode);
    return url;
}

void WebdavBackend::write(const QString& key, const std::optional<QByteArray>& value) {
    if (!invalid_.isEmpty()) {
        systemLog(QStringLiteral("Cloud key-value store: the value of \"%1\" was not written: %2")
                      .arg(key, invalid_));
        listener_->backendDidFinishWrite(key, false);
        return;
    }
    const auto believed = believed_.constFind(key);
    queue_.push_back(
        {true, key, value, believed == believed_.cend() ? std::nullopt : std::optional(*believed)});
    believe(key, value);
    pump();
}

void WebdavBackend::synchronize() {
    if (!invalid_.isEmpty())
        return;
    enqueueListing();
    // An explicit request is worth trying now even while backing off.
    if (retry_.isActive()) {
        retry_.stop();
        pump();
    }
}

void WebdavBackend::enqueueListing() {
    const bool queued = std::any_of(queue_.begin(), queue_.end(), [](const Task& t) { return !t.isWrite; });
    if (!queued)
        queue_.push_back({});
    pump();
}

void WebdavBackend::pump() {
    if (busy_ || queue_.empty() || retry_.isActive())
        return;
    busy_ = true;
    const Task& task = queue_.front();
    if (task.isWrite)
        runWrite(task, [this](Step step) { taskEnded(step); });
    else
        list([this](Step step) { taskEnded(step); }, true);
}

void WebdavBackend::taskEnded(Step step) {
    busy_ = false;
    if (step == Step::retryLater) {
        ++failures_;
        // A listing is made again by the next poll; only writes wait at the head of the queue.
        if (!queue_.front().isWrite)
            queue_.pop_front();
        const int shift = std::min(failures_ - 1, maximumBackoffShift);
        retry_.start(configuration_.pollInterval * (1 << shift));
        poll_.start(configuration_.pollInterval * (1 << shift));
        return;
    }
    queue_.pop_front();
    if (failures_ > 0) {
        failures_ = 0;
        poll_.start(configuration_.pollInterval);
    }
    pump();
}

// PROPFIND depth 1 for the tags of every member, then GET for each member whose tag moved.
void WebdavBackend::list(Then then, bool mayCreate) {
    transport_.send(
        "PROPFIND", collectionUrl_, {{"Depth", "1"}, {"Content-Type", "application/xml; charset=utf-8"}},
        listingRequest, WebdavMultistatus::maximumSize,
        [this, then, mayCreate](const WebdavResponse& response) {
            if (response.outcome == Outcome::answered && response.status == 404 && mayCreate)
                return makeCollection(then);
            if (response.outcome != Outcome::answered || response.status != 207) {
                logFailure(QStringLiteral("listing %1").arg(collectionUrl_.toDisplayString()), response);
                return then(Step::retryLater);
            }
            QString problem;
            const auto members = WebdavMultistatus::parse(response.body, &problem);
            if (!members) {
                logProblem(QStringLiteral("the listing of %1 is not a valid multistatus reply (%2)")
                               .arg(collectionUrl_.toDisplayString(), problem));
                return then(Step::retryLater);
            }
            QHash<QString, QByteArray> tags;
            const QString collectionPath = collectionUrl_.path(QUrl::FullyEncoded);
            for (const auto& member : *members) {
                const std::optional<QString> name =
                    WebdavMultistatus::memberName(member.href, collectionPath);
                if (!name || name->isEmpty())
                    continue;
                if (const std::optional<QString> key = CloudFileNames::keyForFileName(*name))
                    tags.insert(*key, member.etag);
            }
            for (auto it = server_.begin(); it != server_.end();)
                it = tags.contains(it.key()) ? std::next(it) : server_.erase(it);
            QStringList changed;
            for (auto it = tags.cbegin(); it != tags.cend(); ++it) {
                const auto known = server_.constFind(it.key());
                if (known == server_.cend() || it.value().isEmpty() ||
                    WebdavMultistatus::strongForm(known->etag) != WebdavMultistatus::strongForm(it.value()))
                    changed << it.key();
            }
            fetchChanged(changed, then);
        });
}

void WebdavBackend::fetchChanged(QStringList keys, Then then) {
    if (keys.isEmpty()) {
        recovered();
        reportAll();
        return then(Step::done);
    }
    const QString key = keys.takeFirst();
    fetch(key, [this, keys, then](bool ok) {
        if (!ok)
            return then(Step::retryLater);
        fetchChanged(keys, then);
    });
}

// Reads `key` into server_ (or drops it when the server has none).
void WebdavBackend::fetch(const QString& key, std::function<void(bool ok)> then) {
    transport_.send(
        "GET", resourceUrl(key), {}, {}, valueAnswerLimit, [this, key, then](const WebdavResponse& response) {
            if (response.outcome == Outcome::tooLarge) {
                // Kept as an oversized value so the store refuses it, and not fetched
                // again until its tag moves.
                server_.insert(key, {server_.value(key).etag, QByteArray(valueAnswerLimit, '\0')});
                return then(true);
            }
            if (response.outcome == Outcome::answered && response.status == 404) {
                server_.remove(key);
                return then(true);
            }
            if (response.outcome != Outcome::answered || response.status != 200) {
                logFailure(QStringLiteral("reading \"%1\"").arg(key), response);
                return then(false);
            }
            server_.insert(key, {response.etag, response.body});
            then(true);
        });
}

void WebdavBackend::makeCollection(Then then) {
    transport_.send(
        "MKCOL", collectionUrl_, {}, {}, smallAnswerLimit, [this, then](const WebdavResponse& response) {
            // Someone else may have made it in the meantime: list it once more.
            if (response.outcome == Outcome::answered && response.status != 201)
                return list(then, false);
            if (response.outcome != Outcome::answered) {
                logFailure(QStringLiteral("creating the collection %1").arg(collectionUrl_.toDisplayString()),
                           response);
                return then(Step::retryLater);
            }
            systemLog(QStringLiteral("Cloud key-value store: created the collection %1")
                          .arg(collectionUrl_.toDisplayString()));
            server_.clear();
            recovered();
            reportAll();
            then(Step::done);
        });
}

void WebdavBackend::runWrite(const Task& task, Then then) {
    // A write names the version it replaces, so the server's tags must be known first.
    if (!listed_)
        return list(
            [this, task, then](Step step) {
                if (step != Step::done)
                    return then(step);
                runWrite(task, then);
            },
            true);
    attempt(task, 0, then);
}

// If-Match compares tags strongly (RFC 7232 §3.1), so a weak or unknown tag cannot name a version.
// Apache gives a file changed within the current second a weak tag and the same tag strong a
// moment later, so the value is read again, after a pause, until its tag can be named; should
// the value itself have changed meanwhile, another device wrote, and that write wins.
void WebdavBackend::attempt(const Task& task, int round, Then then) {
    const auto known = server_.constFind(task.key);
    // Changed on the server since the store saw it (a listing may have brought the news while the
    // write waited): the other device's value is the later one.
    const std::optional<QByteArray> current =
        known == server_.cend() ? std::nullopt : std::optional(known->value);
    if (round == 0 && current != task.basis)
        return lose(task.key, then);
    if (known == server_.cend() || isComparable(known->etag) || round >= maximumTagRounds)
        return send(task, round, then);
    const Known before = *known;
    QTimer::singleShot(round == 0 ? std::chrono::milliseconds(0) : tagPause, this,
                       [this, task, round, then, before] {
                           fetch(task.key, [this, task, round, then, before](bool ok) {
                               if (!ok)
                                   return then(Step::retryLater);
                               if (changedSince(task.key, before))
                                   return lose(task.key, then);
                               attempt(task, round + 1, then);
                           });
                       });
}

bool WebdavBackend::changedSince(const QString& key, const Known& before) const {
    const auto now = server_.constFind(key);
    return now == server_.cend() || now->value != before.value;
}

void WebdavBackend::send(const Task& task, int round, Then then) {
    WebdavTransport::Headers headers;
    const auto known = server_.constFind(task.key);
    const std::optional<Known> before = known == server_.cend() ? std::nullopt : std::optional(*known);
    if (!before)
        headers.push_back({"If-None-Match", "*"});
    else if (isComparable(before->etag))
        headers.push_back({"If-Match", before->etag});
    // else: a server whose tags never become strong; the value was just read back unchanged.
    transport_.send(
        task.value ? "PUT" : "DELETE", resourceUrl(task.key), headers, task.value.value_or(QByteArray()),
        smallAnswerLimit, [this, task, round, before, then](const WebdavResponse& response) {
            const QString& key = task.key;
            const std::optional<QByteArray>& value = task.value;
            const bool answered = response.outcome == Outcome::answered;
            if (answered && response.status == 412)
                return fetch(key, [this, task, round, before, then](bool ok) {
                    if (!ok) {
                        // What the server holds is unknown now: list before any other write.
                        listed_ = false;
                        enqueueListing();
                        return lose(task.key, then);
                    }
                    // Refused for a tag that was weak by then, while the value is still the one
                    // this write replaces: name it again.
                    if (before && !changedSince(task.key, *before) && round + 1 < maximumTagRounds)
                        return attempt(task, round + 1, then);
                    lose(task.key, then);
                });
            if (answered && !value && response.status == 404) {
                server_.remove(key); // gone already: what this removal wanted
                listener_->backendDidFinishWrite(key, true);
                return then(Step::done);
            }
            if (answered && isSuccess(response.status)) {
                recovered();
                if (!value) {
                    server_.remove(key);
                    listener_->backendDidFinishWrite(key, true);
                    return then(Step::done);
                }
                if (isComparable(response.etag)) {
                    server_.insert(key, {response.etag, *value});
                    listener_->backendDidFinishWrite(key, true);
                    return then(Step::done);
                }
                return learnTag(key, *value, then);
            }
            // Whatever went wrong, the write waits and is tried again: the value stays in the store,
            // and the log says why it has not reached the server.
            logFailure(QStringLiteral("writing \"%1\"").arg(key), response);
            if (answered && (response.status == 404 || response.status == 409))
                listed_ = false; // the collection went away: list (and make) it again first
            then(Step::retryLater);
        });
}

// The server did not say which tag the new value got: read it back. Should the value read be
// another device's, written just after ours, it is the newer one and is reported as a change.
void WebdavBackend::learnTag(const QString& key, const QByteArray& written, Then then) {
    fetch(key, [this, key, written, then](bool ok) {
        listener_->backendDidFinishWrite(key, true);
        if (!ok)
            server_.insert(key, {QByteArray(), written}); // the next write reads the tag first
        else if (changedSince(key, {QByteArray(), written})) {
            // Also how a race inside the server ends: Apache's mod_dav_fs checks If-Match and
            // writes without a lock, so two writes naming one version can both be accepted.
            systemLog(
                QStringLiteral("Cloud key-value store: the value of \"%1\" was replaced on the server by "
                               "another device right after this write; the server's value is taken")
                    .arg(key));
            reportKey(key);
        }
        then(Step::done);
    });
}

// Another device changed the value since this write's version: its value stays and is reported
// (the store takes it in and announces it), and this write ends as failed.
void WebdavBackend::lose(const QString& key, Then then) {
    systemLog(
        QStringLiteral("Cloud key-value store: the write of \"%1\" was not made: another device changed "
                       "it on the server first; the server's value is taken")
            .arg(key));
    listener_->backendDidFinishWrite(key, false);
    reportKey(key);
    then(Step::done);
}

bool WebdavBackend::hasQueuedWrite(const QString& key, bool countHead) const {
    for (auto it = queue_.begin() + (countHead || queue_.empty() ? 0 : 1); it != queue_.end(); ++it)
        if (it->isWrite && it->key == key)
            return true;
    return false;
}

void WebdavBackend::believe(const QString& key, const std::optional<QByteArray>& value) {
    if (value)
        believed_.insert(key, *value);
    else
        believed_.remove(key);
}

void WebdavBackend::reportAll() {
    listed_ = true;
    std::vector<Change> changes;
    changes.reserve(static_cast<size_t>(server_.size()));
    // The store keeps its own value for a key with a write on the way, and so does believed_.
    for (const QString& key : believed_.keys())
        if (!server_.contains(key) && !hasQueuedWrite(key, true))
            believed_.remove(key);
    for (auto it = server_.cbegin(); it != server_.cend(); ++it) {
        changes.push_back({it.key(), it.value().value});
        if (!hasQueuedWrite(it.key(), true))
            believed_.insert(it.key(), it.value().value);
    }
    listener_->backendDidChange(Reason::serverChange, changes, true);
}

void WebdavBackend::reportKey(const QString& key) {
    std::vector<Change> changes(1);
    changes.front().key = key;
    if (const auto it = server_.constFind(key); it != server_.cend())
        changes.front().value = it->value;
    // Called while the write that learned this is still at the head of the queue.
    if (!hasQueuedWrite(key, false))
        believe(key, changes.front().value);
    listener_->backendDidChange(Reason::serverChange, changes, false);
}

void WebdavBackend::logFailure(const QString& what, const WebdavResponse& response) {
    const QString server = configuration_.serverUrl.toDisplayString(QUrl::RemoveUserInfo);
    switch (response.outcome) {
    case Outcome::answered:
        if (response.status == 401 || response.status == 403)
            return logProblem(
                QStringLiteral("%1 failed: the server %2 refused the credentials of \"%3\" (HTTP %4)")
                    .arg(what, server, configuration_.user)
                    .arg(response.status));
        return logProblem(QStringLiteral("%1 failed: HTTP %2 from %3; trying again later")
                              .arg(what)
                              .arg(response.status)
                              .arg(server));
    case Outcome::untrusted:
        return logProblem(QStringLiteral("%1 failed: %2").arg(what, response.problem));
    case Outcome::tooLarge:
        return logProblem(QStringLiteral("%1 failed: %2 answered with too much data (%3)")
                              .arg(what, server, response.problem));
    case Outcome::timedOut:
        return logProblem(
            QStringLiteral("%1 failed: %2 gave %3; trying again later").arg(what, server, response.problem));
    case Outcome::unreachable:
        break;
    }
    logProblem(QStringLiteral("%1 failed: %2 is unreachable (%3); trying again later")
                   .arg(what, server, response.problem));
}

void WebdavBackend::logProblem(const QString& problem) {
    if (problem == lastProblem_)
        return;
    lastProblem_ = problem;
    systemLog(QStringLiteral("Cloud key-value store: ") + problem);
}

void WebdavBackend::recovered() {
    if (lastProblem_.isEmpty())
        return;
    lastProblem_.clear();
    systemLog(QStringLiteral("Cloud key-value store: the WebDAV server %1 answers again")
                  .arg(configuration_.serverUrl.toDisplayString(QUrl::RemoveUserInfo)));
}

} // namespace platform::internal

namespace platform {

std::unique_ptr<UbiquitousKeyValueStoreBackend>
makeWebdavUbiquitousKeyValueStoreBackend(const WebdavConfiguration& configuration) {
    return std::make_unique<internal::WebdavBackend>(configuration);
}

} // namespace platform
