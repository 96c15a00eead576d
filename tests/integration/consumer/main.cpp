// A host program as a user of the installed library writes it. It reaches into each subsystem
// through the shared libraries, exceptions and casts included (they need the types' exported
// type information), so a public type left unexported fails to link or to run here.
#include <marlockCommon/OTPToken.h>
#include <marlockCommon/TimeSource.h>
#include <marlockCompanionCommon/RNCryptor/RNCryptor.h>
#include <marlockCompanionCommon/Version.h>
#include <marlockCompanionCommon/display/NumberScrollView.h>
#include <marlockCompanionCommon/keychain/FXKeychain.h>
#include <marlockCompanionCommon/keychain/KeyedArchiverAdditions.h>
#include <marlockCompanionCommon/platform/keychain/KeychainServices.h>
#include <marlockCompanionCommon/platform/runtime/Identity.h>
#include <marlockCompanionCommon/timing/Clock.h>
#include <marlockCompanionCommon/views/ProgressView.h>

#include <QApplication>

#include <cstdio>
#include <memory>

namespace {

bool containerRoundTrips() {
    const QByteArray container = RNCryptor::encrypt("token data", QStringLiteral("passcode"));
    try {
        (void)RNCryptor::decrypt(container, QStringLiteral("wrong"));
        return false;
    } catch (const RNCryptor::Error& error) {
        if (error.code() != RNCryptor::Error::hmacMismatch)
            return false;
    }
    return RNCryptor::decrypt(container, QStringLiteral("passcode")) == "token data";
}

bool tokenArchiveRoundTrips() {
    auto token = std::make_shared<marlockCommon::OTPToken>();
    token->setAccount(QStringLiteral("alice"));
    const auto bytes = jr_archivedDataWithRootObject(
        QVariant::fromValue(std::shared_ptr<marlockCommon::SecureCoding>(token)), true);
    const auto root = bytes ? jr_unarchiveData(*bytes, true, {QStringLiteral("OTPToken")}) : std::nullopt;
    const auto back = root ? std::dynamic_pointer_cast<marlockCommon::OTPToken>(
                                 root->value<std::shared_ptr<marlockCommon::SecureCoding>>())
                           : nullptr;
    return back && back->account() == QStringLiteral("alice");
}

bool keychainKeepsAValue() {
    FXKeychain keychain(QStringLiteral("consumer"), std::nullopt, 0,
                        std::make_shared<platform::KeychainServices>(platform::makeMemoryKeychainBackend()));
    return keychain.setObject(QStringLiteral("secret"), QStringLiteral("key")) &&
           keychain.objectForKey(QStringLiteral("key")).toString() == QStringLiteral("secret");
}

// The widgets and their layer: a code laid out through the shared glyph cache, a layer archived
// and read back, the progress bar found by its meta-object.
bool codeDisplayWorks() {
    NumberScrollView code;
    code.setImageCachePolicy(NumberScrollView::ImageCachePolicy::global());
    code.setText(QStringLiteral("287 082"), true);
    ProgressView bar;
    QWidget* widget = &bar;

    auto layer = std::make_shared<NumberScrollLayer>();
    layer->setText(QStringLiteral("94 287"));
    const auto bytes = jr_archivedDataWithRootObject(
        QVariant::fromValue(std::shared_ptr<marlockCommon::SecureCoding>(layer)), true);
    const auto root =
        bytes ? jr_unarchiveData(*bytes, true, {QStringLiteral("NumberScrollLayer")}) : std::nullopt;
    const auto back = root ? std::dynamic_pointer_cast<NumberScrollLayer>(
                                 root->value<std::shared_ptr<marlockCommon::SecureCoding>>())
                           : nullptr;
    NumberScrollLayer::evictGlobalImageCache();
    return code.sizeHint().width() > 0 && qobject_cast<ProgressView*>(widget) && back &&
           back->text() == QStringLiteral("94 287");
}

} // namespace

int main(int argc, char** argv) {
    // No display needed: the widgets are only laid out, never shown.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    Clock clock(30);
    QObject* object = &clock;
    if (timeIntervalSince1970() < 1e9 || !qobject_cast<Clock*>(object) || !containerRoundTrips() ||
        !tokenArchiveRoundTrips() || !keychainKeepsAValue() || !codeDisplayWorks())
        return 1;
    std::printf("consumer ok %s %s\n", qPrintable(marlockCompanionCommonVersion()),
                qPrintable(platform::Identity::bundleIdentifier()));
    return 0;
}
