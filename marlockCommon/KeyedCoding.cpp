#include "marlockCommon/KeyedCoding.h"

#include "marlockCommon/OTPToken.h"

#include <QHash>

#include <mutex>

namespace marlockCommon {

namespace {

struct Registry {
    Registry() {
        classes.insert(OTPToken::archivedClassName(), [](KeyedDecoder& coder) {
            return std::shared_ptr<SecureCoding>(OTPToken::decode(coder));
        });
    }
    std::mutex mutex;
    QHash<QString, SecureCodingDecodeFunction> classes;
};

Registry& registry() {
    // Built on first use, so it never depends on the order of static initialisation.
    static Registry instance;
    return instance;
}

} // namespace

std::optional<SecureCodingDecodeFunction> secureCodingClass(const QString& className) {
    auto& r = registry();
    std::lock_guard lock(r.mutex);
    const auto found = r.classes.constFind(className);
    if (found == r.classes.cend())
        return std::nullopt;
    return *found;
}

void registerSecureCodingClass(const QString& className, SecureCodingDecodeFunction decode) {
    auto& r = registry();
    std::lock_guard lock(r.mutex);
    r.classes.insert(className, std::move(decode));
}

} // namespace marlockCommon
