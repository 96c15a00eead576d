// Feeds arbitrary bytes to the property-list reader: every input must either parse or fail with
// an error. What parses and can be written back must read again and write the same bytes.
#include "marlockCompanionCommon/platform/storage/PropertyList.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    namespace plist = platform::PropertyList;
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    platform::Error error;
    plist::Format format{};
    const std::optional<QVariant> value = plist::read(bytes, &format, &error);
    if (!value) {
        if (error.domain != plist::errorDomain || error.code != plist::readCorruptError)
            abort();
        return 0;
    }
    // Some parsed values cannot be written back (a date beyond the writer's range, a string
    // holding NUL, a UID in XML); the others must survive a round trip unchanged.
    if (const std::optional<QByteArray> again = plist::write(*value, plist::Format::Binary)) {
        const std::optional<QVariant> reread = plist::read(*again);
        if (!reread)
            abort();
    }
    return 0;
}
