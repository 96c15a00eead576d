#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QByteArray>
#include <QHash>
#include <QString>

#include <memory>
#include <optional>
#include <vector>

namespace platform {

// Why the values of a cloud key-value store changed from outside, as the platform numbers it.
enum class UbiquitousKeyValueStoreChangeReason : int {
    serverChange = 0,         // another process, the sync engine or another device wrote
    initialSyncChange = 1,    // the first values arrived from the storage
    quotaViolationChange = 2, // a value or the whole store went over its size limit
    accountChange = 3,        // the storage itself changed: its folder vanished or came back
};

// Where a UbiquitousKeyValueStore keeps its values. The store keeps a replica of every value in
// memory and answers reads from it; a backend tells it what the storage holds. Backends: a folder
// that a sync engine carries between machines (makeFolderUbiquitousKeyValueStoreBackend), memory
// shared between stores of one process (UbiquitousKeyValueMemoryCloud, for tests), and network
// storage written the same way.
//
// Contract (the store calls every member on the main thread):
//  - nothing may wait on a network: open() answers from what is at hand (a folder, a local
//    cache), writes are queued, and what is learned later arrives through the listener;
//  - a backend reports values as the storage holds them; it need not know which writes were its
//    own: the store compares with its replica and announces only real differences;
//  - when two writers collide, the storage (or the sync engine behind it) settles on one value and
//    the backend reports that one: last writer wins.
class MCC_EXPORT UbiquitousKeyValueStoreBackend {
public:
    // A key and the value the storage now holds for it; absent when it holds none.
    struct Change {
        QString key;
        std::optional<QByteArray> value;
    };

    // The store's side. Calls come on the main thread; any may come from inside a call to the backend.
    class Listener {
    public:
        virtual ~Listener() = default;
        // What the storage holds for `changes`. With `complete`, the changes list every key the
        // storage holds: keys missing from them are gone.
        virtual void backendDidChange(UbiquitousKeyValueStoreChangeReason reason,
                                      const std::vector<Change>& changes, bool complete) = 0;
        // The write of `key` handed to write() has ended, in the order writes were made.
        virtual void backendDidFinishWrite(const QString& key, bool succeeded) = 0;
    };

    virtual ~UbiquitousKeyValueStoreBackend() = default;

    // Starts the backend: returns what the storage holds, as far as it is known without waiting.
    // Called once, before anything else; `listener` outlives the backend.
    virtual QHash<QString, QByteArray> open(Listener* listener) = 0;

    // Queues writing `value` under `key` (absent: removing the key). The store has checked the
    // key and the sizes.
    virtual void write(const QString& key, const std::optional<QByteArray>& value) = 0;

    // Re-checks the storage as far as that needs no waiting, and asks for what does.
    virtual void synchronize() = 0;

    // Cheap catch-up before a read: reports at once the changes that are already known locally
    // (file events the kernel has queued), so a process reads what another process of the same
    // machine wrote just before telling it so. Nothing by default.
    virtual void refresh() {}
};

// Values kept in memory and shared by every backend made from one cloud, as if the stores using
// them were processes or devices over one storage: a write through one backend is reported to the
// others on a later pass of the event loop. For tests. Main thread only.
//
//   auto cloud = platform::UbiquitousKeyValueMemoryCloud::create();
//   platform::UbiquitousKeyValueStore a(cloud->makeBackend()), b(cloud->makeBackend());
class MCC_EXPORT UbiquitousKeyValueMemoryCloud
    : public std::enable_shared_from_this<UbiquitousKeyValueMemoryCloud> {
public:
    static std::shared_ptr<UbiquitousKeyValueMemoryCloud> create();
    ~UbiquitousKeyValueMemoryCloud();
    UbiquitousKeyValueMemoryCloud(const UbiquitousKeyValueMemoryCloud&) = delete;
    UbiquitousKeyValueMemoryCloud& operator=(const UbiquitousKeyValueMemoryCloud&) = delete;

    // A backend over this cloud; it keeps the cloud alive.
    std::unique_ptr<UbiquitousKeyValueStoreBackend> makeBackend();

    // What the cloud holds, and a write that no store made (another device's), reported to every backend.
    QHash<QString, QByteArray> values() const;
    void writeFromElsewhere(const QString& key, const std::optional<QByteArray>& value);

private:
    UbiquitousKeyValueMemoryCloud();
    void store(const QString& key, const std::optional<QByteArray>& value);
    class Backend;
    struct Private;
    std::unique_ptr<Private> d;
};

// A backend over the folder `path`: one file per key (the file name is the key, percent-encoded
// where a file name could not hold it or a sync engine would take it for its own), replaced
// atomically; changes by anyone else are seen through inotify. Sync engines' temporary files,
// markers and conflict copies are ignored and left alone. `createIfMissing` creates the folder
// (0700) when it does not exist; otherwise a missing folder is logged and reads are empty until
// it appears. See UbiquitousKeyValueStore for the whole behaviour.
MCC_EXPORT std::unique_ptr<UbiquitousKeyValueStoreBackend>
makeFolderUbiquitousKeyValueStoreBackend(const QString& path, bool createIfMissing);

} // namespace platform
