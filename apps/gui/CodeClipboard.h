#pragma once

#include <QString>

#include <chrono>

namespace companion {

// Puts a code on the clipboard, and takes it off again after `lifetime` unless something else
// was copied meanwhile: a code left on the clipboard ends up pasted where it should not be, and
// clipboard managers keep what they see.
void copyCode(const QString& code, std::chrono::milliseconds lifetime = std::chrono::seconds(30));

} // namespace companion
