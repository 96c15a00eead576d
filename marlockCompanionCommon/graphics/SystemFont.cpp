#include "marlockCompanionCommon/graphics/SystemFont.h"

#include <QFontDatabase>

#include <mutex>
#include <utility>

namespace graphics {
namespace {

std::mutex descriptionMutex;
std::optional<SystemFontDescription> replacement;

} // namespace

SystemFontDescription systemFontDescription() {
    {
        std::lock_guard lock(descriptionMutex);
        if (replacement)
            return *replacement;
    }
    const QString family = QFontDatabase::systemFont(QFontDatabase::GeneralFont).family();
    return {family, family};
}

ScopedSystemFont::ScopedSystemFont(const SystemFontDescription& description) {
    std::lock_guard lock(descriptionMutex);
    previous_ = std::exchange(replacement, description);
}

ScopedSystemFont::~ScopedSystemFont() {
    std::lock_guard lock(descriptionMutex);
    replacement = previous_;
}

} // namespace graphics
