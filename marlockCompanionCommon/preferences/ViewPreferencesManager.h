#pragma once

#include "marlockCompanionCommon/Export.h"

#include <QByteArray>
#include <QObject>
#include <QString>

#include <optional>

namespace platform {
class UserDefaults;
}

// Posted across processes (through PLXDarwinNotificationCenter::otpDarwinNotificationCenter(),
// so delivered with the product prefix) after the separator or the colour preference is set.
// The animation preference deliberately has no notification.
inline const QString VPMSeparatorStringDidChangeDarwinNotification =
    QStringLiteral("VPMSeparatorStringDidChangeDarwinNotification");
inline const QString VPMChangeColorWhenCodeWillChangeDidChangeDarwinNotification =
    QStringLiteral("VPMChangeColorWhenCodeWillChangeDidChangeDarwinNotification");

// How codes look, in the app's window and in the widget alike: which string splits a code into
// groups ("123 456"), whether a code turns another colour in its last seconds, and whether a new
// code rolls in or just appears. A user sets them in one process and expects the other to follow,
// so they are kept in the settings suite of the application group that both processes open, and
// every getter reads that store rather than a copy.
// A change is saved to the suite before its notification goes out, so a process that reads the
// preferences when it hears one reads what was announced; writes are saved by themselves in any
// case (see UserDefaults), `synchronize` or not.
//
// Keys: "separatorString" (string), "changeColorWhenCodeWillChange" and "animateCodeChanges"
// (booleans). Safe from any thread; the notifications arrive on the main thread.
//
//   auto* preferences = ViewPreferencesManager::sharedManager();
//   preferences->setSeparatorString(QStringLiteral(" "));
//   label->setText(ViewPreferencesManager::formatCodeWithSeparator(QStringLiteral("123456"))); // "123 456"
class MCC_EXPORT ViewPreferencesManager : public QObject {
    Q_OBJECT
public:
    // The process's manager, over the application group's suite (the standard store when the
    // suite cannot be opened) with marlockCommon's "defaults" property list registered as its
    // defaults. Created on first use, kept for the life of the process.
    static ViewPreferencesManager* sharedManager();

    // A manager over `userDefaults` (not owned, must outlive it), registering the dictionary in
    // the property list `registrationDefaults` when it reads as one. For hosts and tests that
    // need a store of their own; the shared manager is made the same way.
    ViewPreferencesManager(platform::UserDefaults* userDefaults,
                           const std::optional<QByteArray>& registrationDefaults, QObject* parent = nullptr);
    ~ViewPreferencesManager() override;
    Q_DISABLE_COPY(ViewPreferencesManager)

    // The separator; empty when none is stored or registered. A stored value that is not a
    // string stops the process.
    Q_INVOKABLE QString getSeparatorString() const;
    // Stores the separator and always posts VPMSeparatorStringDidChangeDarwinNotification (also
    // when the value is unchanged). The store is saved before the post whatever `synchronize`
    // says: the other process reads it when it hears the name.
    Q_INVOKABLE void setSeparatorString(const QString& separator, bool synchronize = true);

    // False when neither stored nor registered.
    Q_INVOKABLE bool getChangeColorWhenCodeWillChange() const;
    // Stores and always posts VPMChangeColorWhenCodeWillChangeDidChangeDarwinNotification; saved
    // before the post as for the separator.
    Q_INVOKABLE void setChangeColorWhenCodeWillChange(bool changeColor, bool synchronize = true);

    // False when neither stored nor registered.
    Q_INVOKABLE bool getAnimateCodeChanges() const;
    // Stores, saves at once when `synchronize` (else shortly, by itself); posts nothing.
    Q_INVOKABLE void setAnimateCodeChanges(bool animate, bool synchronize = true);

    // Writes the factory values (animation on, empty separator, colour change off), posting the
    // separator notification and then the colour one (each after saving the suite), and flushes
    // the process's standard store.
    // The values are written, not removed: registered defaults no longer apply afterwards.
    Q_INVOKABLE void resetToDefault();

    // `code` with the shared manager's separator inserted: 3 + rest for 4 to 7 characters,
    // 3 + 3 + rest for 8 or more, unchanged for fewer or with an empty separator. Lengths count
    // UTF-16 code units, so a character outside the BMP counts two.
    //   "12345678" with "-" → "123-456-78"
    static QString formatCodeWithSeparator(const QString& code);
    // The same rule with a given separator.
    static QString insertSeparator(const QString& code, const QString& separator);

private:
    void post(const QString& name) const;

    platform::UserDefaults* const userDefaults_;
    const QString separatorStringKey_;
    const QString changeColorWhenCodeWillChangeKey_;
    const QString animateCodeChangesKey_;
};
