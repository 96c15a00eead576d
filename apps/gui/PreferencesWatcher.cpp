#include "gui/PreferencesWatcher.h"

#include "marlockCompanionCommon/notifications/PLXDarwinNotificationCenter.h"
#include "marlockCompanionCommon/preferences/ViewPreferencesManager.h"

#include <QPointer>

namespace companion {

PreferencesWatcher::PreferencesWatcher(QObject* parent)
    : QObject(parent)
    , center_(PLXDarwinNotificationCenter::otpDarwinNotificationCenter()) {
    QPointer<PreferencesWatcher> self(this);
    for (const QString& name : {VPMSeparatorStringDidChangeDarwinNotification,
                                VPMChangeColorWhenCodeWillChangeDidChangeDarwinNotification})
        observers_.push_back(
            center_->addObserverForName(name, nullptr, [self](const platform::Notification&) {
                if (self)
                    emit self->changed();
            }));
}

PreferencesWatcher::~PreferencesWatcher() {
    for (const auto& observer : observers_)
        center_->removeObserver(observer.get());
}

} // namespace companion
