#include "common/ImportError.h"

namespace companion {

ImportError::ImportError(Code code, const QString& detail)
    : code_(code)
    , detail_(detail)
    , what_(message().toUtf8()) {}

QString ImportError::message() const {
    switch (code_) {
    case Code::unreadableImage:
        return QStringLiteral("%1 is not a picture that can be read (use a PNG, JPEG, BMP or similar file)")
            .arg(detail_);
    case Code::noQrCode:
        return QStringLiteral("No QR code found in %1 (crop the picture to the code, or paste the key URI "
                              "instead)")
            .arg(detail_);
    case Code::severalQrCodes:
        return QStringLiteral("%1 holds several QR codes (crop the picture to the one code to add)")
            .arg(detail_);
    case Code::notAKeyURI:
        return QStringLiteral("Not a token's key URI (otpauth://…): %1").arg(detail_);
    }
    return detail_;
}

} // namespace companion
