#pragma once

#include "marlockCompanionCommon/platform/runtime/NotificationCenter.h"
#include "marlockCompanionCommon/platform/storage/UbiquitousKeyValueStore.h"
#include "tests/support/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstdio>

namespace cloudtest {

// One external-change notification as a store posted it.
struct Announcement {
    qint64 reason = -1;
    QStringList keys;
};

// The external-change notifications one store posts while it lives.
class Announcements {
public:
    explicit Announcements(platform::UbiquitousKeyValueStore* store) {
        token_ = platform::NotificationCenter::defaultCenter().addObserver(
            platform::UbiquitousKeyValueStoreDidChangeExternallyNotification, store, nullptr,
            [this](const platform::Notification& n) {
                heard.push_back(
                    {n.userInfo.value(platform::UbiquitousKeyValueStoreChangeReasonKey).toLongLong(),
                     n.userInfo.value(platform::UbiquitousKeyValueStoreChangedKeysKey).toStringList()});
            });
    }
    ~Announcements() { platform::NotificationCenter::defaultCenter().removeObserver(token_); }
    Announcements(const Announcements&) = delete;
    Announcements& operator=(const Announcements&) = delete;

    // Waits for an announcement with `reason` that names `key`.
    bool waitFor(qint64 reason, const QString& key) {
        return testsupport::waitUntil([&] {
            return std::any_of(heard.begin(), heard.end(), [&](const Announcement& a) {
                return a.reason == reason && a.keys.contains(key);
            });
        });
    }

    std::vector<Announcement> heard;

private:
    platform::NotificationCenter::ObserverToken token_;
};

// Writes a file the way a sync engine delivers one: complete, under a temporary name, then renamed.
inline void deliverFile(const QString& folder, const QString& name, const QByteArray& content) {
    const QString temporary = folder + QStringLiteral("/.syncthing.") + name + QStringLiteral(".tmp");
    QFile file(temporary);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    ASSERT_EQ(file.write(content), content.size());
    file.close();
    // rename(2), which replaces the target the way sync engines do (QDir::rename would refuse).
    ASSERT_EQ(::rename(QFile::encodeName(temporary).constData(),
                       QFile::encodeName(folder + QLatin1Char('/') + name).constData()),
              0);
}

} // namespace cloudtest
