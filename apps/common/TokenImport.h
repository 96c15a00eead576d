#pragma once

#include "common/ImportError.h"

#include "marlockCommon/TokenRecord.h"

#include <QImage>
#include <QString>

// Taking a token in from what a person has at hand: a key URI pasted as text, or a QR code in a
// picture (a screenshot of a service's setup page, a photo). Everything here reads untrusted
// input: it fails with an ImportError, never with a crash.
//
//   try {
//       auto record = companion::tokenFromImageFile(path);
//       store.add(record, &error);
//   } catch (const companion::ImportError& failure) {
//       show(failure.message());
//   }
namespace companion {

// The key URI in `text`, spaces and line breaks around it ignored. Throws ImportError
// (notAKeyURI, with the reader's reason as detail).
marlockCommon::TokenRecord tokenFromText(const QString& text);

// The token of the one QR code in `image`. Throws ImportError: noQrCode, severalQrCodes, or
// notAKeyURI when the code holds something else (including bytes that are not UTF-8). `source`
// names the picture in messages.
marlockCommon::TokenRecord tokenFromQrImage(const QImage& image,
                                            const QString& source = QStringLiteral("the picture"));

// The same for a picture file; unreadableImage when it cannot be read as one.
marlockCommon::TokenRecord tokenFromImageFile(const QString& path);

} // namespace companion
