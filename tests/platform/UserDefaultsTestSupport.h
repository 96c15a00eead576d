#pragma once

#include "marlockCompanionCommon/platform/Identity.h"
#include "marlockCompanionCommon/platform/PropertyList.h"
#include "marlockCompanionCommon/platform/SystemLog.h"
#include "tests/platform/QVariantPrinter.h"
#include "tests/support/TestSupport.h"

#include <QDateTime>
#include <QFile>
#include <QProcess>
#include <QStringList>
#include <QTimeZone>

#include <gtest/gtest.h>

#include <limits>
#include <memory>

// Each test gets its own config folder and its own suite name, so that the process-wide
// instances of earlier tests never interfere.
class UserDefaultsTest : public ::testing::Test {
protected:
    testsupport::ScopedIsolatedHome home;
    const QString suiteName = platform::Identity::applicationGroup();

    QString configFolder() const { return home.path() + QStringLiteral("/config"); }

    // The file's content as a fresh reader sees it; invalid when there is no file.
    static QVariant readFile(const QString& path) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            return {};
        return platform::PropertyList::read(file.readAll()).value_or(QVariant());
    }
};

// One value of every type a suite stores, in the form reading gives back.
inline QVariantMap everyValueType() {
    return {{"bool", true},
            {"integer", std::numeric_limits<qint64>::min()},
            {"double", -2.75},
            {"string", QStringLiteral("séparateur ✓")},
            {"data", QByteArray("\x00\xff", 2)},
            {"date", QDateTime(QDate(2024, 2, 29), QTime(12, 34, 56, 789), QTimeZone::utc())},
            {"array", QVariantList{qint64(1), "two"}},
            {"dictionary", QVariantMap{{"nested", QVariantMap{{"x", 1.5}}}}}};
}

// The system-log lines written while it lives.
struct LogLines {
    QStringList lines;
    platform::SystemLogCapture capture{[this](const QString& line) { lines << line; }};
};

class UserDefaultsDeathTest : public UserDefaultsTest {};

// The second process: tests/platform/helpers/UserDefaultsHelper.cpp.
struct HelperRun {
    int exitCode = -1;
    QByteArray output;
};

inline std::unique_ptr<QProcess> startHelper(const QStringList& arguments) {
    auto process = std::make_unique<QProcess>();
    process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process->start(QStringLiteral(MARLOCK_USER_DEFAULTS_HELPER), arguments);
    return process;
}

inline HelperRun finishHelper(QProcess& process) {
    process.waitForFinished(120000);
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            process.readAllStandardOutput()};
}

inline HelperRun runHelper(const QStringList& arguments) {
    return finishHelper(*startHelper(arguments));
}
