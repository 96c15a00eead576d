#pragma once

#include <QString>

namespace companion {

// "light" or "dark": Qt's Fusion style with a palette of that kind, whatever the desktop says
// (for people who want it, and for screenshots); anything else leaves the desktop's look alone.
void applyTheme(const QString& theme);

} // namespace companion
