// Feeds arbitrary file names, as a synced folder may hold them, to the cloud store's name reader:
// a name is a key only when it is exactly the name that key is stored under, and any key's name
// reads back as that key.
#include "marlockCompanionCommon/platform/storage/UbiquitousKeyValueStore.h"
#include "marlockCompanionCommon/platform/storage/internal/CloudFileNames.h"

#include <QFile>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    namespace names = platform::internal::CloudFileNames;
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const QString name = QFile::decodeName(bytes);
    if (const std::optional<QString> key = names::keyForFileName(name)) {
        if (key->isEmpty() || key->toUtf8().size() > platform::UbiquitousKeyValueStore::maximumKeyLength ||
            names::fileNameForKey(*key) != name || names::isSyncEngineFile(name))
            abort();
    }
    // The same bytes as a key: its file name must be an ordinary name that reads back as the key.
    const QString key = QString::fromUtf8(bytes);
    if (!key.isEmpty() && key.toUtf8().size() <= platform::UbiquitousKeyValueStore::maximumKeyLength) {
        const QString file = names::fileNameForKey(key);
        if (names::isSyncEngineFile(file) || file.contains(QLatin1Char('/')) ||
            names::keyForFileName(file) != key)
            abort();
    }
    return 0;
}
