#include "marlockCompanionCommon/notifications/PLXNotificationCenterPrefixWrapper.h"

namespace {

QString withoutOuterDots(QString prefix) {
    qsizetype begin = 0;
    qsizetype end = prefix.size();
    while (begin < end && prefix.at(begin) == QLatin1Char('.'))
        ++begin;
    while (end > begin && prefix.at(end - 1) == QLatin1Char('.'))
        --end;
    return prefix.mid(begin, end - begin);
}

} // namespace

PLXNotificationCenterPrefixWrapper::PLXNotificationCenterPrefixWrapper(
    std::shared_ptr<PLXNotificationCenter> notificationCenter, const QString& prefix)
    : notificationCenter_(std::move(notificationCenter))
    , prefix_(withoutOuterDots(prefix)) {}

QString PLXNotificationCenterPrefixWrapper::prefixedName(const std::optional<QString>& name) const {
    return QStringLiteral("%1.%2").arg(prefix_, name.value_or(QStringLiteral("(null)")));
}

PLXNotificationCenter::ObserverToken
PLXNotificationCenterPrefixWrapper::addObserverForName(const QString& name, platform::OperationQueue* queue,
                                                       Block block) {
    return notificationCenter_->addObserverForName(prefixedName(name), queue, std::move(block));
}

void PLXNotificationCenterPrefixWrapper::addObserver(QObject* observer, const char* selector,
                                                     const QString& name) {
    notificationCenter_->addObserver(observer, selector, prefixedName(name));
}

void PLXNotificationCenterPrefixWrapper::removeObserver(const QObject* observer) {
    notificationCenter_->removeObserver(observer);
}

void PLXNotificationCenterPrefixWrapper::removeObserver(const QObject* observer,
                                                        const std::optional<QString>& name) {
    notificationCenter_->removeObserver(observer, prefixedName(name));
}

void PLXNotificationCenterPrefixWrapper::postNotification(const platform::Notification& notification) {
    notificationCenter_->postNotification(
        platform::Notification{prefixedName(notification.name), nullptr, {}});
}

void PLXNotificationCenterPrefixWrapper::postNotificationName(const QString& name) {
    notificationCenter_->postNotificationName(prefixedName(name));
}
