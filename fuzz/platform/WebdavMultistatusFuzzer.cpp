// Feeds arbitrary bytes, as a server (or whatever answers at its address) may send them, to the
// reader of PROPFIND replies: it either refuses them with a reason or returns members within its
// bounds, and every href it returns can be asked for a member name without harm.
#include "marlockCompanionCommon/platform/storage/webdav/internal/WebdavMultistatus.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    namespace ms = platform::internal::WebdavMultistatus;
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    QString problem;
    const auto members = ms::parse(bytes, &problem);
    if (!members) {
        if (problem.isEmpty())
            abort();
        return 0;
    }
    if (qsizetype(members->size()) > ms::maximumMembers)
        abort();
    for (const ms::Member& member : *members)
        if (const std::optional<QString> name = ms::memberName(member.href, QStringLiteral("/dav/c/")))
            if (name->contains(QLatin1Char('/')))
                abort();
    return 0;
}
