#pragma once

#include "marlockCompanionCommon/platform/runtime/Notification.h"

#include <QObject>
#include <QStringList>
#include <QThread>

// A selector observer that writes down what it was told: "<method>:<name>" per call, plus
// whether each call came on the main thread.
class NotificationRecorder : public QObject {
    Q_OBJECT
public:
    QStringList calls;
    bool allOnMainThread = true;

    Q_INVOKABLE void first(const platform::Notification& notification) { record("first", notification.name); }
    Q_INVOKABLE void second(const platform::Notification& notification) {
        record("second", notification.name);
    }
    Q_INVOKABLE void bare() { record("bare", QString()); }

private:
    void record(const char* method, const QString& name) {
        allOnMainThread = allOnMainThread && QThread::currentThread() == thread();
        calls << QStringLiteral("%1:%2").arg(QLatin1String(method), name);
    }
};
