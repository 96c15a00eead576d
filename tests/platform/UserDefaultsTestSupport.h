#pragma once

#include "marlockCompanionCommon/platform/Identity.h"
#include "marlockCompanionCommon/platform/PropertyList.h"
#include "tests/platform/QVariantPrinter.h"
#include "tests/support/TestSupport.h"

#include <QFile>
#include <QProcess>
#include <QStringList>

#include <gtest/gtest.h>

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
