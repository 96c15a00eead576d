#include "common/TokenImport.h"

#include "common/QrCode.h"

#include "marlockCommon/KeyURI.h"
#include "marlockCommon/TokenError.h"

#include <QImageReader>
#include <QStringDecoder>

namespace companion {

marlockCommon::TokenRecord tokenFromText(const QString& text) {
    try {
        return marlockCommon::KeyURI::parse(text.trimmed());
    } catch (const marlockCommon::TokenError& error) {
        throw ImportError(ImportError::Code::notAKeyURI, error.message());
    }
}

marlockCommon::TokenRecord tokenFromQrImage(const QImage& image, const QString& source) {
    const std::vector<QByteArray> codes = QrCode::decode(image);
    if (codes.empty())
        throw ImportError(ImportError::Code::noQrCode, source);
    if (codes.size() > 1)
        throw ImportError(ImportError::Code::severalQrCodes, source);
    // Strict: a replacement character would only hide that this is not a key URI.
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = utf8(codes.front());
    if (utf8.hasError())
        throw ImportError(ImportError::Code::notAKeyURI, QStringLiteral("the QR code does not hold text"));
    return tokenFromText(text);
}

marlockCommon::TokenRecord tokenFromImageFile(const QString& path) {
    QImageReader reader(path);
    // EXIF orientation does not matter to a scanner, but it makes photos read like their preview.
    reader.setAutoTransform(true);
    const QImage image = reader.read();
    if (image.isNull())
        throw ImportError(ImportError::Code::unreadableImage, path);
    return tokenFromQrImage(image, path);
}

} // namespace companion
