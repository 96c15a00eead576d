// Gives each sync test process (and the processes it starts, which inherit the environment) a
// notification prefix, settings suite and keychain identity of its own, before anything reads them,
// so that no other program's data or notifications can meet these tests.
#include <QUuid>
#include <QtGlobal>

#include <gtest/gtest.h>

namespace {

class IsolatedIdentities : public ::testing::Environment {
public:
    void SetUp() override {
        const QByteArray unique = QUuid::createUuid().toString(QUuid::Id128).toUtf8();
        qputenv("MARLOCK_BUNDLE_IDENTIFIER", "test.sync." + unique);
        qputenv("MARLOCK_APPLICATION_GROUP", "test.group.sync." + unique);
        qputenv("MARLOCK_KEYCHAIN_IDENTIFIER", "test.keychain.sync." + unique);
    }
};

const auto* const environment = ::testing::AddGlobalTestEnvironment(new IsolatedIdentities);

} // namespace
