#include "marlockCompanionCommon/preferences/ViewPreferencesManager.h"

#include "marlockCommon/Bundle.h"
#include "marlockCompanionCommon/notifications/PLXDarwinNotificationCenter.h"
#include "marlockCompanionCommon/platform/runtime/FatalError.h"
#include "marlockCompanionCommon/platform/runtime/Identity.h"
#include "marlockCompanionCommon/platform/storage/PropertyList.h"
#include "marlockCompanionCommon/platform/storage/UserDefaults.h"

#include <mutex>

ViewPreferencesManager* ViewPreferencesManager::sharedManager() {
    static std::once_flag once;
    static ViewPreferencesManager* shared = nullptr;
    std::call_once(once, [] {
        platform::UserDefaults* defaults =
            platform::UserDefaults::suiteNamed(platform::Identity::applicationGroup());
        if (!defaults)
            defaults = platform::UserDefaults::standardUserDefaults();
        shared = new ViewPreferencesManager(
            defaults, marlockCommon::resourceData(QStringLiteral("defaults"), QStringLiteral("plist")));
    });
    return shared;
}

ViewPreferencesManager::ViewPreferencesManager(platform::UserDefaults* userDefaults,
                                               const std::optional<QByteArray>& registrationDefaults,
                                               QObject* parent)
    : QObject(parent)
    , userDefaults_(userDefaults)
    , separatorStringKey_(QStringLiteral("separatorString"))
    , changeColorWhenCodeWillChangeKey_(QStringLiteral("changeColorWhenCodeWillChange"))
    , animateCodeChangesKey_(QStringLiteral("animateCodeChanges")) {
    // A missing or unreadable defaults file is skipped: the getters then fall back to empty/false.
    if (!registrationDefaults)
        return;
    const std::optional<QVariant> plist = platform::PropertyList::read(*registrationDefaults);
    if (plist && plist->typeId() == QMetaType::QVariantMap)
        userDefaults_->registerDefaults(plist->toMap());
}

ViewPreferencesManager::~ViewPreferencesManager() = default;

QString ViewPreferencesManager::getSeparatorString() const {
    const QVariant value = userDefaults_->objectForKey(separatorStringKey_);
    if (!value.isValid())
        return QString();
    if (value.typeId() != QMetaType::QString)
        platform::fatalError(QStringLiteral("Could not cast value of type '%1' to 'String'")
                                 .arg(QString::fromLatin1(value.typeName())));
    return value.toString();
}

void ViewPreferencesManager::setSeparatorString(const QString& separator, bool synchronize) {
    userDefaults_->setObject(separator, separatorStringKey_);
    (void)synchronize; // saved in any case, by post()
    post(VPMSeparatorStringDidChangeDarwinNotification);
}

bool ViewPreferencesManager::getChangeColorWhenCodeWillChange() const {
    return userDefaults_->boolForKey(changeColorWhenCodeWillChangeKey_);
}

void ViewPreferencesManager::setChangeColorWhenCodeWillChange(bool changeColor, bool synchronize) {
    userDefaults_->setBool(changeColor, changeColorWhenCodeWillChangeKey_);
    (void)synchronize; // saved in any case, by post()
    post(VPMChangeColorWhenCodeWillChangeDidChangeDarwinNotification);
}

bool ViewPreferencesManager::getAnimateCodeChanges() const {
    return userDefaults_->boolForKey(animateCodeChangesKey_);
}

void ViewPreferencesManager::setAnimateCodeChanges(bool animate, bool synchronize) {
    userDefaults_->setBool(animate, animateCodeChangesKey_);
    if (synchronize)
        (void)userDefaults_->synchronize();
}

void ViewPreferencesManager::resetToDefault() {
    userDefaults_->setBool(true, animateCodeChangesKey_);
    userDefaults_->setObject(QStringLiteral(""), separatorStringKey_);
    post(VPMSeparatorStringDidChangeDarwinNotification);
    userDefaults_->setBool(false, changeColorWhenCodeWillChangeKey_);
    post(VPMChangeColorWhenCodeWillChangeDidChangeDarwinNotification);
    // The process's standard store, not the group suite written above (post() saved that): that
    // is how a reset has always behaved.
    (void)platform::UserDefaults::standardUserDefaults()->synchronize();
}

QString ViewPreferencesManager::formatCodeWithSeparator(const QString& code) {
    return insertSeparator(code, sharedManager()->getSeparatorString());
}

QString ViewPreferencesManager::insertSeparator(const QString& code, const QString& separator) {
    if (separator.isEmpty())
        return code;
    QString formatted = code;
    if (code.size() >= 4)
        formatted.insert(3, separator);
    // After the sixth unit of the code as given: the first separator has moved it along.
    if (code.size() >= 8)
        formatted.insert(6 + separator.size(), separator);
    return formatted;
}

void ViewPreferencesManager::post(const QString& name) const {
    // The other process reads the store as soon as it hears the name, and what it reads is the
    // file: what the name announces must be in it first, so the store is saved before every post.
    (void)userDefaults_->synchronize();
    PLXDarwinNotificationCenter::otpDarwinNotificationCenter()->postNotificationName(name);
}
