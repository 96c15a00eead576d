#pragma once

#include <QByteArray>
#include <QString>

#include <exception>

namespace companion {

// Why a token could not be taken from a picture or from pasted text. The message says what was
// wrong and what to try instead, for showing as it is.
class ImportError : public std::exception {
public:
    enum class Code {
        unreadableImage, // the file is missing or not a picture Qt can read
        noQrCode,        // the picture holds no QR code that could be read
        severalQrCodes,  // more than one: which token was meant is unclear
        notAKeyURI,      // the text is not an otpauth:// key URI (the reason is in the detail)
    };

    // `detail` names the file, or the key URI reader's reason.
    ImportError(Code code, const QString& detail);

    Code code() const noexcept { return code_; }
    QString detail() const { return detail_; }
    QString message() const;
    const char* what() const noexcept override { return what_.constData(); }

private:
    Code code_;
    QString detail_;
    QByteArray what_;
};

} // namespace companion
