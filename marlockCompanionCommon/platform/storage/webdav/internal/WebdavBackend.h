#pragma once

#include "marlockCompanionCommon/platform/storage/webdav/WebdavConfiguration.h"
#include "marlockCompanionCommon/platform/storage/webdav/internal/WebdavTransport.h"

#include <QHash>
#include <QObject>
#include <QTimer>

#include <deque>
#include <functional>
#include <optional>

namespace platform::internal {

// The WebDAV backend of the cloud key-value store (makeWebdavUbiquitousKeyValueStoreBackend says
// what it promises). Work goes through one queue, one request at a time: a listing of the
// collection, or a write. Serial order is what lets each write name the entity tag the previous
// one left, and keeps the store's write acknowledgements in the order the writes were made.
class WebdavBackend final : public QObject, public UbiquitousKeyValueStoreBackend {
public:
    explicit WebdavBackend(WebdavConfiguration configuration);
    ~WebdavBackend() override;
    WebdavBackend(const WebdavBackend&) = delete;
    WebdavBackend& operator=(const WebdavBackend&) = delete;

    QHash<QString, QByteArray> open(Listener* listener) override;
    void write(const QString& key, const std::optional<QByteArray>& value) override;
    void synchronize() override;

private:
    // A value as the server holds it, with the tag it was last seen under (empty: not known).
    struct Known {
        QByteArray etag;
        QByteArray value;
    };
    struct Task {
        bool isWrite = false;
        QString key;
        std::optional<QByteArray> value;
        // What the store held for the key when it made the write: the version the write replaces.
        std::optional<QByteArray> basis;
    };
    enum class Step { done, retryLater };
    using Then = std::function<void(Step)>;

    void enqueueListing();
    void pump();
    void taskEnded(Step step);
    void list(Then then, bool mayCreate);
    void fetchChanged(QStringList keys, Then then);
    void fetch(const QString& key, std::function<void(bool ok)> then);
    void makeCollection(Then then);
    void runWrite(const Task& task, Then then);
    void attempt(const Task& task, int round, Then then);
    void send(const Task& task, int round, Then then);
    void learnTag(const QString& key, const QByteArray& written, Then then);
    void lose(const QString& key, Then then);
    bool changedSince(const QString& key, const Known& before) const;
    bool hasQueuedWrite(const QString& key, bool countHead) const;
    void believe(const QString& key, const std::optional<QByteArray>& value);
    void reportAll();
    void reportKey(const QString& key);
    // Says in the log why a request failed (once while the same problem lasts).
    void logFailure(const QString& what, const WebdavResponse& response);
    void logProblem(const QString& problem);
    void recovered();

    QUrl resourceUrl(const QString& key) const;

    const WebdavConfiguration configuration_;
    QString invalid_; // why the configuration cannot be used; empty when it can
    QUrl collectionUrl_;
    WebdavTransport transport_;
    Listener* listener_ = nullptr;
    QHash<QString, Known> server_;
    // What the store has been told or has written itself, key by key: a write replaces this.
    QHash<QString, QByteArray> believed_;
    bool listed_ = false; // the tags of the collection's members are known
    std::deque<Task> queue_;
    bool busy_ = false;
    int failures_ = 0;
    QTimer poll_;
    QTimer retry_;
    QString lastProblem_;
};

} // namespace platform::internal
