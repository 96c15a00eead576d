#pragma once

#include <QByteArray>
#include <QImage>
#include <QString>

#include <optional>
#include <vector>

// QR codes, the way key URIs travel between a desktop and a phone. Reading goes through ZBar,
// writing through libqrencode; neither leaks into this header.
//
//   auto texts = companion::QrCode::decode(QImage("screenshot.png"));   // every code found
//   auto picture = companion::QrCode::image(uri);                        // for a window
//   std::cout << companion::QrCode::terminalText(uri, true)->toStdString();
namespace companion::QrCode {

// The contents of every QR code in `image`, as bytes, in the order ZBar reports them; empty when
// there is none (or the image is null). Any image format and size is taken: it is read as grey,
// light codes on dark backgrounds included. Never throws on image content.
std::vector<QByteArray> decode(const QImage& image);

// A black-on-white picture of `text` as a QR code (error correction level M), `moduleSize`
// pixels per module and a quiet zone of four modules; absent when the text is too long for any
// QR code.
std::optional<QImage> image(const QString& text, int moduleSize = 8);

// `text` as a QR code drawn with half-block characters, two modules per character cell,
// including a quiet zone of two modules; absent when too long. With `ansiColours`, each line
// forces black on white so the code reads on dark and light terminals alike; without, dark
// modules are spaces and light ones are blocks, which suits a terminal with light text on dark.
std::optional<QString> terminalText(const QString& text, bool ansiColours);

} // namespace companion::QrCode
