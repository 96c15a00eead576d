#pragma once

#include <QDebug>
#include <QVariant>
#include <QVariantMap>

#include <gtest/gtest.h>

#include <ostream>

// GoogleTest prints QVariants in failure messages through this instead of as raw bytes.
inline void PrintTo(const QVariant& value, std::ostream* out) {
    QString text;
    QDebug(&text) << value;
    *out << text.toStdString();
}

// Same keys, and per key the same value of the same type: QVariant's == alone takes 7 and 7.0 as
// equal.
inline void expectSameValues(const QVariantMap& got, const QVariantMap& want) {
    EXPECT_EQ(got.keys(), want.keys());
    for (auto it = want.begin(); it != want.end(); ++it) {
        EXPECT_EQ(got.value(it.key()), it.value()) << qPrintable(it.key());
        EXPECT_EQ(got.value(it.key()).typeId(), it.value().typeId()) << qPrintable(it.key());
    }
}
