#include "marlockCompanionCommon/platform/KeyedArchiverClasses.h"

#include <mutex>
#include <vector>

namespace platform::KeyedArchiverClasses {
namespace {

std::mutex& tableMutex() {
    static std::mutex mutex;
    return mutex;
}

std::vector<KeyedArchiverClass>& table() {
    static std::vector<KeyedArchiverClass> classes;
    return classes;
}

} // namespace

void registerClass(KeyedArchiverClass cls) {
    std::lock_guard lock(tableMutex());
    std::erase_if(table(), [&](const KeyedArchiverClass& c) { return c.name == cls.name || c.type == cls.type; });
    table().push_back(std::move(cls));
}

std::optional<KeyedArchiverClass> forName(const QString& name) {
    std::lock_guard lock(tableMutex());
    for (const KeyedArchiverClass& c : table())
        if (c.name == name)
            return c;
    return std::nullopt;
}

std::optional<KeyedArchiverClass> forType(QMetaType type) {
    std::lock_guard lock(tableMutex());
    for (const KeyedArchiverClass& c : table())
        if (c.type == type)
            return c;
    return std::nullopt;
}

} // namespace platform::KeyedArchiverClasses
