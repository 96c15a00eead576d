// Feeds arbitrary bytes to the keyed unarchiver with only NumberScrollLayer allowed, as a host
// reading a saved layer would. Every input must decode or fail with an unarchive error; a layer
// that decodes must archive again and decode to the same text.
#include "marlockCompanionCommon/display/NumberScrollLayer.h"
#include "marlockCompanionCommon/keychain/KeyedArchiver.h"
#include "marlockCompanionCommon/keychain/KeyedUnarchiver.h"

#include <QGuiApplication>

#include <cstdint>
#include <cstdlib>

namespace {

std::shared_ptr<NumberScrollLayer> unarchive(const QByteArray& bytes) {
    const QVariant root = platform::KeyedUnarchiver::unarchivedObjectOfClasses({"NumberScrollLayer"}, bytes);
    return std::dynamic_pointer_cast<NumberScrollLayer>(
        root.value<std::shared_ptr<marlockCommon::SecureCoding>>());
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    // Layers measure glyphs, which needs the font database of a GUI application.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static QGuiApplication application(*argc, *argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    std::shared_ptr<NumberScrollLayer> layer;
    try {
        layer = unarchive(bytes);
    } catch (const platform::ArchiveException& exception) {
        if (exception.name() != platform::KeyedArchive::invalidUnarchiveOperationException)
            abort();
        return 0;
    }
    if (!layer)
        return 0; // a nil root
    const auto again = unarchive(platform::KeyedArchiver::archivedData(
        QVariant::fromValue(std::shared_ptr<marlockCommon::SecureCoding>(layer)), true));
    if (!again || again->text() != layer->text() || again->font() != layer->font())
        abort();
    return 0;
}
