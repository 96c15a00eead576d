#pragma once

#include <QIcon>

namespace companion {

// The programs' icon for windows and the tray, drawn in code: the menu icon is an SVG file, and
// reading SVG would need Qt's SVG plugin only for this.
QIcon appIcon();

} // namespace companion
