// Feeds arbitrary pictures to the QR import: raw grey pixels straight to the scanner (first byte
// 0, then the width as two bytes, then rows of pixels), or any bytes as an image file for Qt to
// decode (first byte 1). Besides "never crash", a picture that is taken must give a token that
// computes codes. The text a code holds then goes through the key URI reader, which
// fuzz_keyuri covers on its own.
//
//   build-fuzz/fuzz/apps/fuzz_qr_image -max_len=70000 -max_total_time=120 corpus-dir fuzz/apps/corpus/QrImage
#include "common/ImportError.h"
#include "common/TokenImport.h"

#include "marlockCommon/OTPToken.h"
#include "marlockCommon/TokenError.h"

#include <QImage>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Bigger pictures only make each run slower, not the parsing different.
constexpr int largestWidth = 1024;

QImage picture(const uint8_t* data, size_t size) {
    if (size < 1)
        return {};
    if (data[0] == 1)
        return QImage::fromData(data + 1, static_cast<int>(size - 1));
    if (size < 3)
        return {};
    const int width = (data[1] << 8 | data[2]) % largestWidth + 1;
    const size_t pixels = size - 3;
    const int height = static_cast<int>(pixels / size_t(width));
    if (height == 0)
        return {};
    QImage grey(width, height, QImage::Format_Grayscale8);
    for (int y = 0; y < height; ++y)
        std::memcpy(grey.scanLine(y), data + 3 + size_t(y) * size_t(width), size_t(width));
    return grey;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QImage image = picture(data, size);
    try {
        const auto record = companion::tokenFromQrImage(image);
        try {
            record.toOTPToken()->password(0);
        } catch (const marlockCommon::TokenError& error) {
            std::fprintf(stderr, "a token was taken that computes no code: %s\n", error.what());
            std::abort();
        }
    } catch (const companion::ImportError&) {
    }
    return 0;
}
