#pragma once

#include <QString>

#include <ostream>

// Lets GoogleTest show QStrings as text in failure messages.
inline void PrintTo(const QString& text, std::ostream* out) {
    *out << '"' << text.toStdString() << '"';
}
