#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QString>

#include <optional>

// The system font lives here rather than beside the system version in platform/runtime because
// finding it needs QtGui's font database, which the platform part does not link.
namespace graphics {

// The user-interface font as the display code consults it: the family to draw with and the
// name the platform gives it (which Font::verticallyCenteredColonFont() inspects).
//
// On Linux both are the family of Qt's general system font (QFontDatabase::systemFont(), which
// fontconfig resolves; "Sans Serif", i.e. DejaVu Sans, on a plain Debian). No Linux family
// name begins with ".", so the centred-colon form is not chosen for it; tests set a description
// whose name does with ScopedSystemFont. Thread-safe; needs a QGuiApplication.
//
//   graphics::Font font = graphics::Font::systemFont(12);
struct SystemFontDescription {
    QString family;
    QString familyName;
};

MCC_EXPORT SystemFontDescription systemFontDescription();

// Test hook: the system font is `description` while the object lives.
//
//   graphics::ScopedSystemFont system({"Inter", ".InterUI"});
class MCC_EXPORT ScopedSystemFont {
public:
    explicit ScopedSystemFont(const SystemFontDescription& description);
    ~ScopedSystemFont();
    ScopedSystemFont(const ScopedSystemFont&) = delete;
    ScopedSystemFont& operator=(const ScopedSystemFont&) = delete;

private:
    std::optional<SystemFontDescription> previous_;
};

} // namespace graphics
