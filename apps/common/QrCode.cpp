#include "common/QrCode.h"

#include <QPainter>

#include <qrencode.h>
#include <zbar.h>

#include <cstring>
#include <memory>

namespace companion::QrCode {

// zbar.h declares its C interface inside namespace zbar when compiled as C++.
using namespace zbar;

namespace {

// Larger pictures are scaled down first: scanning time grows with the pixel count, and a code
// that a phone can read survives the scaling.
constexpr int largestSide = 8192;

struct ScannerDeleter {
    void operator()(zbar_image_scanner_t* scanner) const { zbar_image_scanner_destroy(scanner); }
};
struct ImageDeleter {
    void operator()(zbar_image_t* image) const { zbar_image_destroy(image); }
};
struct CodeDeleter {
    void operator()(QRcode* code) const { QRcode_free(code); }
};

using Code = std::unique_ptr<QRcode, CodeDeleter>;

Code encode(const QString& text) {
    const QByteArray bytes = text.toUtf8();
    // Eight-bit mode keeps the bytes as they are; version 0 picks the smallest that fits.
    return Code(QRcode_encodeData(static_cast<int>(bytes.size()),
                                  reinterpret_cast<const unsigned char*>(bytes.constData()), 0,
                                  QR_ECLEVEL_M));
}

bool dark(const QRcode& code, int x, int y) {
    if (x < 0 || y < 0 || x >= code.width || y >= code.width)
        return false; // the quiet zone
    return code.data[y * code.width + x] & 1;
}

} // namespace

std::vector<QByteArray> decode(const QImage& image) {
    if (image.isNull())
        return {};
    QImage grey = image;
    if (grey.width() > largestSide || grey.height() > largestSide)
        grey = grey.scaled(largestSide, largestSide, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    // Transparent pixels count as white, as a viewer would show them.
    if (grey.hasAlphaChannel()) {
        QImage opaque(grey.size(), QImage::Format_RGB32);
        opaque.fill(Qt::white);
        QPainter painter(&opaque);
        painter.drawImage(0, 0, grey);
        painter.end();
        grey = opaque;
    }
    grey = grey.convertToFormat(QImage::Format_Grayscale8);
    const int width = grey.width();
    const int height = grey.height();
    // ZBar wants the rows packed; a QImage pads each to 4 bytes.
    QByteArray pixels(qsizetype(width) * height, Qt::Uninitialized);
    for (int y = 0; y < height; ++y)
        std::memcpy(pixels.data() + qsizetype(y) * width, grey.constScanLine(y), size_t(width));

    std::unique_ptr<zbar_image_scanner_t, ScannerDeleter> scanner(zbar_image_scanner_create());
    zbar_image_scanner_set_config(scanner.get(), ZBAR_NONE, ZBAR_CFG_ENABLE, 0);
    zbar_image_scanner_set_config(scanner.get(), ZBAR_QRCODE, ZBAR_CFG_ENABLE, 1);
    // The bytes as stored, not converted by ZBar's guess at their character set.
    zbar_image_scanner_set_config(scanner.get(), ZBAR_QRCODE, ZBAR_CFG_BINARY, 1);
    // Light codes on a dark background (a screenshot of a dark-themed page).
    zbar_image_scanner_set_config(scanner.get(), ZBAR_NONE, ZBAR_CFG_TEST_INVERTED, 1);

    std::unique_ptr<zbar_image_t, ImageDeleter> zimage(zbar_image_create());
    zbar_image_set_format(zimage.get(), zbar_fourcc('Y', '8', '0', '0'));
    zbar_image_set_size(zimage.get(), static_cast<unsigned>(width), static_cast<unsigned>(height));
    zbar_image_set_data(zimage.get(), pixels.constData(), static_cast<unsigned long>(pixels.size()), nullptr);

    std::vector<QByteArray> found;
    if (zbar_scan_image(scanner.get(), zimage.get()) <= 0)
        return found;
    for (const zbar_symbol_t* symbol = zbar_image_first_symbol(zimage.get()); symbol;
         symbol = zbar_symbol_next(symbol))
        if (zbar_symbol_get_type(symbol) == ZBAR_QRCODE)
            found.emplace_back(zbar_symbol_get_data(symbol),
                               static_cast<qsizetype>(zbar_symbol_get_data_length(symbol)));
    return found;
}

std::optional<QImage> image(const QString& text, int moduleSize) {
    const Code code = encode(text);
    if (!code)
        return std::nullopt;
    constexpr int quietZone = 4;
    const int modules = code->width + 2 * quietZone;
    QImage picture(modules * moduleSize, modules * moduleSize, QImage::Format_Grayscale8);
    picture.fill(Qt::white);
    for (int y = 0; y < code->width; ++y)
        for (int x = 0; x < code->width; ++x)
            if (dark(*code, x, y))
                for (int py = 0; py < moduleSize; ++py) {
                    uchar* row = picture.scanLine((y + quietZone) * moduleSize + py);
                    std::memset(row + (x + quietZone) * moduleSize, 0, size_t(moduleSize));
                }
    return picture;
}

std::optional<QString> terminalText(const QString& text, bool ansiColours) {
    const Code code = encode(text);
    if (!code)
        return std::nullopt;
    constexpr int quietZone = 2;
    // Blocks draw light modules in the foreground colour; a space leaves the background (dark).
    const QString bothLight = QStringLiteral("\u2588"), topLight = QStringLiteral("\u2580"),
                  bottomLight = QStringLiteral("\u2584"), bothDark = QStringLiteral(" ");
    QString out;
    for (int y = -quietZone; y < code->width + quietZone; y += 2) {
        if (ansiColours)
            out += QStringLiteral("\x1b[97;40m"); // bright white on black
        for (int x = -quietZone; x < code->width + quietZone; ++x) {
            const bool top = dark(*code, x, y);
            const bool bottom = dark(*code, x, y + 1);
            out += top ? (bottom ? bothDark : bottomLight) : (bottom ? topLight : bothLight);
        }
        if (ansiColours)
            out += QStringLiteral("\x1b[0m");
        out += QLatin1Char('\n');
    }
    return out;
}

} // namespace companion::QrCode
