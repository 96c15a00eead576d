#include "marlockCompanionCommon/platform/FatalError.h"

#include <cstdio>
#include <cstdlib>

namespace platform {

#ifdef __cpp_lib_source_location
void fatalError(const QString& message, const std::source_location& where) {
    fatalError(message, where.file_name(), static_cast<int>(where.line()));
}
#else
void fatalError(const QString& message, const char* file, int line) {
    fatalError(message, std::string_view(file), line);
}
#endif

void fatalError(const QString& message, std::string_view unit, int line) {
    const QByteArray text = message.toUtf8();
    std::fprintf(stderr, "%.*s:%d: Fatal error: %s\n", static_cast<int>(unit.size()), unit.data(), line,
                 text.constData());
    std::fflush(stderr);
    std::abort();
}

} // namespace platform
