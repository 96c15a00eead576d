#pragma once

#include <QDebug>
#include <QVariant>

#include <ostream>

// GoogleTest prints QVariants in failure messages through this instead of as raw bytes.
inline void PrintTo(const QVariant& value, std::ostream* out) {
    QString text;
    QDebug(&text) << value;
    *out << text.toStdString();
}
