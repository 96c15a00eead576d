#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QByteArray>

// The interface shared by the container's encryptors and decryptors, so that code streaming a
// file or a network reply can drive either the same way: feed update() with pieces as they
// arrive (their size does not matter, a single byte works), collect what each call returns, and
// call finalData() once for the remainder. An object serves one stream, on one thread.
//
// Decryptors hand out plaintext before the MAC at the end has been checked; a caller that must
// not act on unauthenticated data keeps the output until finalData() has returned. The one-shot
// calls (encrypt / decrypt) do that.
class MCC_EXPORT RNCryptorType {
public:
    virtual ~RNCryptorType();
    RNCryptorType(const RNCryptorType&) = delete;
    RNCryptorType& operator=(const RNCryptorType&) = delete;

    // Takes the next piece of the stream; returns the output that is ready (may be empty).
    // Decryptors throw RNCryptor::Error; encryptors never throw.
    [[nodiscard]] virtual QByteArray update(const QByteArray& data) = 0;

    // Ends the stream and returns the last output. Decryptors throw RNCryptor::Error (a bad MAC
    // is only noticed here); encryptors never throw.
    [[nodiscard]] virtual QByteArray finalData() = 0;

protected:
    RNCryptorType() = default;

    // update() of all of `data`, then finalData(), concatenated. The first error ends it and no
    // partial output is returned.
    [[nodiscard]] QByteArray oneshot(const QByteArray& data);
};
