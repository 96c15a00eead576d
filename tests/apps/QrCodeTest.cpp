// Reading and drawing QR codes, and taking tokens in from pictures and pasted text.
#include "common/QrCode.h"
#include "common/TokenImport.h"

#include "marlockCommon/KeyURI.h"
#include "tests/apps/AppsTestSupport.h"

#include <QPainter>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <functional>

using companion::ImportError;
namespace QrCode = companion::QrCode;

namespace {

const QString mailUri =
    "otpauth://totp/Demo%20Mail:alice%40example.org?secret=JBSWY3DPEHPK3PXP&issuer=Demo%20Mail";

TEST(QrCode, DrawingsReadBackAsTheirText) {
    const QString texts[] = {
        mailUri,
        // Long enough for a large version; non-ASCII labels travel as UTF-8.
        "otpauth://totp/B%C3%A4ckerei%20%C3%9Cnal:j%C3%BCrgen?algorithm=SHA512&digits=8&secret=" +
            QString(103, 'A') + "Q",
    };
    for (const QString& text : texts) {
        for (int moduleSize : {2, 8}) {
            const auto picture = QrCode::image(text, moduleSize);
            ASSERT_TRUE(picture);
            EXPECT_EQ(QrCode::decode(*picture), std::vector{text.toUtf8()}) << moduleSize;
        }
        for (bool ansi : {false, true}) {
            const auto drawing = QrCode::terminalText(text, ansi);
            ASSERT_TRUE(drawing);
            EXPECT_EQ(QrCode::decode(appstest::pictureOfDrawing(*drawing)), std::vector{text.toUtf8()})
                << ansi;
        }
    }
    EXPECT_FALSE(QrCode::image(QString(8000, 'x')));
    EXPECT_FALSE(QrCode::terminalText(QString(8000, 'x'), false));
}

TEST(QrCode, PicturesAreReadAsPeopleHaveThem) {
    const QImage plain = appstest::qrPicture(mailUri.toUtf8());
    QImage inverted = plain;
    inverted.invertPixels();
    // Dark modules on a transparent background, as a web page's PNG often has them.
    QImage transparent(plain.size(), QImage::Format_ARGB32);
    transparent.fill(Qt::transparent);
    for (int y = 0; y < plain.height(); ++y)
        for (int x = 0; x < plain.width(); ++x)
            if (qGray(plain.pixel(x, y)) < 128)
                transparent.setPixel(x, y, qRgba(0, 0, 0, 255));
    // Wider than the scanner takes at once: scaled down, still readable.
    QImage wide(8400, 2 * plain.height(), QImage::Format_RGB32);
    wide.fill(Qt::white);
    QPainter(&wide).drawImage(0, 0, plain.scaled(plain.size() * 2));
    for (const auto& [what, picture] : {std::pair{"plain", plain}, std::pair{"light on dark", inverted},
                                        std::pair{"transparent", transparent}, std::pair{"wide", wide}})
        EXPECT_EQ(QrCode::decode(picture), std::vector{mailUri.toUtf8()}) << what;
}

TEST(TokenImport, TakesOneKeyUriAndRefusesAnythingElse) {
    QTemporaryDir dir;
    const QString good = dir.filePath("good.png"), text = dir.filePath("text.png");
    ASSERT_TRUE(appstest::qrPicture(mailUri.toUtf8()).save(good));
    QFile file(text);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write("not a picture") > 0);
    file.close();
    const auto expected = marlockCommon::KeyURI::parse(mailUri);
    EXPECT_EQ(companion::tokenFromImageFile(good), expected);
    EXPECT_EQ(companion::tokenFromText("  " + mailUri + "\n"), expected);

    QImage blank(200, 200, QImage::Format_RGB32);
    blank.fill(Qt::white);
    const QImage two = appstest::sideBySide(appstest::qrPicture(mailUri.toUtf8()),
                                            appstest::qrPicture("otpauth://totp/B?secret=MFRGGZDF"));
    const struct {
        const char* what;
        std::function<void()> import;
        ImportError::Code code;
    } refusals[] = {
        {"a blank picture", [&] { companion::tokenFromQrImage(blank); }, ImportError::Code::noQrCode},
        {"no picture at all", [] { companion::tokenFromQrImage(QImage()); }, ImportError::Code::noQrCode},
        {"two codes", [&] { companion::tokenFromQrImage(two); }, ImportError::Code::severalQrCodes},
        {"a web address", [] { companion::tokenFromQrImage(appstest::qrPicture("https://example.org/")); },
         ImportError::Code::notAKeyURI},
        {"bytes that are not text",
         [] {
             companion::tokenFromQrImage(
                 appstest::qrPicture(QByteArray("otpauth://totp/\xff\xfe?secret=AA")));
         },
         ImportError::Code::notAKeyURI},
        {"a key URI without a secret", [] { companion::tokenFromText("otpauth://totp/x"); },
         ImportError::Code::notAKeyURI},
        {"a missing file", [&] { companion::tokenFromImageFile(dir.filePath("missing.png")); },
         ImportError::Code::unreadableImage},
        {"a file that is not a picture", [&] { companion::tokenFromImageFile(text); },
         ImportError::Code::unreadableImage},
    };
    for (const auto& refusal : refusals) {
        try {
            refusal.import();
            ADD_FAILURE() << refusal.what << " was taken";
        } catch (const ImportError& error) {
            EXPECT_EQ(error.code(), refusal.code) << refusal.what << ": " << error.what();
            EXPECT_FALSE(error.message().isEmpty());
        }
    }
}

} // namespace
