#pragma once

#include "marlockCompanionCommon/platform/storage/UbiquitousKeyValueStoreBackend.h"

#include <QObject>
#include <QSet>
#include <QTimer>

#include <memory>

class QSocketNotifier;

namespace platform::internal {

// The folder backend of the cloud key-value store (see UbiquitousKeyValueStore.h for what it
// promises). One file per key, named by CloudFileNames; inotify on the folder, read through a
// QSocketNotifier on the main thread, tells which files changed, and the files are read again
// once a burst of events has settled (or at once, from refresh()). A folder that is missing,
// unreadable or gone is tried again every two seconds and on synchronize().
class CloudFolderBackend final : public QObject, public UbiquitousKeyValueStoreBackend {
public:
    CloudFolderBackend(QString path, bool createIfMissing);
    ~CloudFolderBackend() override;
    CloudFolderBackend(const CloudFolderBackend&) = delete;
    CloudFolderBackend& operator=(const CloudFolderBackend&) = delete;

    QHash<QString, QByteArray> open(Listener* listener) override;
    void write(const QString& key, const std::optional<QByteArray>& value) override;
    void synchronize() override;
    void refresh() override;

private:
    bool attach();
    void detach(const QString& why);
    void retryAttach();
    QHash<QString, QByteArray> scan();
    std::optional<QByteArray> readFile(const QString& fileName) const;
    bool writeFile(const QString& fileName, const QByteArray& bytes);
    bool removeFile(const QString& fileName);
    bool syncFolder() const;
    void drainEvents();
    void processChanges();
    void reportAll(UbiquitousKeyValueStoreChangeReason reason, const QHash<QString, QByteArray>& values);
    void logProblem(const QString& problem);

    const QString path_;
    const bool createIfMissing_;
    Listener* listener_ = nullptr;
    int inotify_ = -1;
    int watch_ = -1;
    bool available_ = false;
    std::unique_ptr<QSocketNotifier> notifier_;
    QTimer settle_;
    QTimer retry_;
    QSet<QString> changedNames_;
    bool rescan_ = false;
    QString lastProblem_;
};

} // namespace platform::internal
