#include "marlockCompanionCommon/platform/runtime/FatalError.h"

#include <cstdio>
#include <cstdlib>

namespace platform {

void fatalError(const QString& message, std::string_view unit, int line) {
    const QByteArray text = message.toUtf8();
    std::fprintf(stderr, "%.*s:%d: Fatal error: %s\n", static_cast<int>(unit.size()), unit.data(), line,
                 text.constData());
    std::fflush(stderr);
    std::abort();
}

} // namespace platform
