#pragma once

#include "tests/support/TestSupport.h"

#include <QByteArray>
#include <QImage>
#include <QString>

#include <memory>

namespace appstest {

// A profile of its own for one test: fresh settings folders and application group
// (ScopedIsolatedHome) and a bundle identifier of its own, so keychain services and
// notification names never meet another test's. Children started while it lives inherit it.
// Its keychain items are deleted when it ends, whether or not the test passed.
class ScopedProfile {
public:
    ScopedProfile();
    ~ScopedProfile();
    QString bundleIdentifier() const { return bundleIdentifier_; }
    QString path() const { return home_.path(); }

private:
    testsupport::ScopedIsolatedHome home_;
    QByteArray oldBundle_;
    QString bundleIdentifier_;
};

// `bytes` as a QR code drawn by the test itself from libqrencode's modules (black on white,
// `scale` pixels per module, four modules of quiet zone), independent of the code under test.
QImage qrPicture(const QByteArray& bytes, int scale = 6);

// Two pictures side by side on white, as a page with two codes would show them.
QImage sideBySide(const QImage& left, const QImage& right);

// A drawing of half-block characters (ANSI colour sequences allowed) turned back into a picture,
// `scale` pixels per module, dark where the drawing is dark.
QImage pictureOfDrawing(const QString& drawing, int scale = 4);

} // namespace appstest
