// Feeds arbitrary bytes to the property-list reader: every input must either parse or fail with
// an error. A parsed value that can be written back must read again, and writing what was read
// must give the very bytes written before: after one pass through the writer, reading and
// writing change nothing. (The input's own bytes cannot be expected back: other writers lay out
// the same values differently, and XML keeps dates to whole seconds.)
#include "marlockCompanionCommon/platform/storage/PropertyList.h"

#include <cstdint>
#include <cstdlib>

namespace {

namespace plist = platform::PropertyList;

void checkRoundTrip(const QVariant& value, plist::Format format) {
    // Some parsed values cannot be written back (a date beyond the writer's range, a string
    // holding NUL, a UID in XML).
    const std::optional<QByteArray> written = plist::write(value, format);
    if (!written)
        return;
    plist::Format readFormat{};
    const std::optional<QVariant> reread = plist::read(*written, &readFormat);
    if (!reread || readFormat != format)
        abort();
    const std::optional<QByteArray> again = plist::write(*reread, format);
    if (!again || *again != *written)
        abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    platform::Error error;
    const std::optional<QVariant> value = plist::read(bytes, nullptr, &error);
    if (!value) {
        if (error.domain != plist::errorDomain || error.code != plist::readCorruptError)
            abort();
        return 0;
    }
    checkRoundTrip(*value, plist::Format::Binary);
    checkRoundTrip(*value, plist::Format::Xml);
    return 0;
}
