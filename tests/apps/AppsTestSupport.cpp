#include "tests/apps/AppsTestSupport.h"

#include "marlockCompanionCommon/platform/keychain/KeychainBackend.h"

#include <QPainter>
#include <QRegularExpression>
#include <QUuid>

#include <qrencode.h>

#include <algorithm>

namespace appstest {

ScopedProfile::ScopedProfile()
    : oldBundle_(qgetenv("MARLOCK_BUNDLE_IDENTIFIER"))
    , bundleIdentifier_(QStringLiteral("test.marlock.%1").arg(QUuid::createUuid().toString(QUuid::Id128))) {
    qputenv("MARLOCK_BUNDLE_IDENTIFIER", bundleIdentifier_.toUtf8());
}

ScopedProfile::~ScopedProfile() {
    // Every item under the profile's services ("<id>.tokens", "<id>.tokens.order", …).
    auto backend = platform::makeSecretServiceKeychainBackend();
    std::vector<platform::KeychainRecord> items;
    if (backend->find({platform::KeychainClass::genericPassword, std::nullopt, std::nullopt}, {}, &items) ==
        platform::KeychainStatusCode::success)
        for (const auto& record : items)
            if (record.item.service.startsWith(bundleIdentifier_))
                (void)backend->remove({record.item.itemClass, record.item.service, record.item.account});
    if (oldBundle_.isNull())
        qunsetenv("MARLOCK_BUNDLE_IDENTIFIER");
    else
        qputenv("MARLOCK_BUNDLE_IDENTIFIER", oldBundle_);
}

QImage qrPicture(const QByteArray& bytes, int scale) {
    QRcode* code =
        QRcode_encodeData(static_cast<int>(bytes.size()),
                          reinterpret_cast<const unsigned char*>(bytes.constData()), 0, QR_ECLEVEL_L);
    if (!code)
        return {};
    const int side = (code->width + 8) * scale;
    QImage picture(side, side, QImage::Format_RGB32);
    picture.fill(Qt::white);
    QPainter painter(&picture);
    for (int y = 0; y < code->width; ++y)
        for (int x = 0; x < code->width; ++x)
            if (code->data[y * code->width + x] & 1)
                painter.fillRect((x + 4) * scale, (y + 4) * scale, scale, scale, Qt::black);
    QRcode_free(code);
    return picture;
}

QImage sideBySide(const QImage& left, const QImage& right) {
    QImage page(left.width() + right.width(), std::max(left.height(), right.height()), QImage::Format_RGB32);
    page.fill(Qt::white);
    QPainter painter(&page);
    painter.drawImage(0, 0, left);
    painter.drawImage(left.width(), 0, right);
    return page;
}

QImage pictureOfDrawing(const QString& drawing, int scale) {
    QString plain = drawing;
    plain.remove(QRegularExpression(QStringLiteral("\x1b\\[[0-9;]*m")));
    const QStringList rows = plain.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    qsizetype columns = 0;
    for (const QString& row : rows)
        columns = std::max(columns, row.size());
    // Light frame around, as a phone needs a quiet zone whatever the drawing brings.
    const int margin = 4;
    QImage picture(int(columns + 2 * margin) * scale, int(rows.size() * 2 + 2 * margin) * scale,
                   QImage::Format_RGB32);
    picture.fill(Qt::white);
    QPainter painter(&picture);
    for (int y = 0; y < rows.size(); ++y)
        for (int x = 0; x < rows[y].size(); ++x) {
            const QChar c = rows[y][x];
            const bool topDark = c == QChar(0x2584) || c == QLatin1Char(' ');
            const bool bottomDark = c == QChar(0x2580) || c == QLatin1Char(' ');
            if (topDark)
                painter.fillRect((x + margin) * scale, (2 * y + margin) * scale, scale, scale, Qt::black);
            if (bottomDark)
                painter.fillRect((x + margin) * scale, (2 * y + 1 + margin) * scale, scale, scale, Qt::black);
        }
    return picture;
}

} // namespace appstest
