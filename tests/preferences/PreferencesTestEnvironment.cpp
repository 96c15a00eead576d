// Gives this test process (and the peers it starts, which inherit the environment) an
// application group and a notification prefix of its own, before anything reads them, so no
// other program's settings or notifications can meet these tests.
#include <QUuid>
#include <QtGlobal>

#include <gtest/gtest.h>

namespace {

class IsolatedIdentities : public ::testing::Environment {
public:
    void SetUp() override {
        const QByteArray unique = QUuid::createUuid().toString(QUuid::Id128).toUtf8();
        qputenv("MARLOCK_APPLICATION_GROUP", "test.group.vpm." + unique);
        qputenv("MARLOCK_BUNDLE_IDENTIFIER", "test.vpm." + unique);
    }
};

const auto* const environment = ::testing::AddGlobalTestEnvironment(new IsolatedIdentities);

} // namespace
