#include <QProcess>
#include <QRegularExpression>

#include <gtest/gtest.h>

namespace {

struct Outcome {
    int exitCode = -1;
    QString out, err;
};

Outcome marlock(const QStringList& arguments) {
    QProcess process;
    process.start(QStringLiteral(MARLOCK_CLI_PATH), arguments);
    EXPECT_TRUE(process.waitForFinished(60000)) << arguments.join(' ').toStdString();
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

const QString rfcSha1Uri = "otpauth://totp/RFC:test?secret=GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ&digits=8";

} // namespace

TEST(MarlockCli, DemoPrintsACodeAndTimeLeftForEachSampleToken) {
    const Outcome run = marlock({"demo"});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    const QRegularExpression row("^RFC 6238 +sha(1|256|512)@example.org +SHA\\1 +\\d{8} +\\d+ s$",
                                 QRegularExpression::MultilineOption);
    int rows = 0;
    for (auto it = row.globalMatch(run.out); it.hasNext(); it.next())
        ++rows;
    EXPECT_EQ(rows, 3) << run.out.toStdString();
}

TEST(MarlockCli, CodePrintsTheCodeOfAKeyUri) {
    const Outcome run = marlock({"code", "--time", "59", rfcSha1Uri});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.out, "94287082\n");
    const Outcome now = marlock({"code", rfcSha1Uri});
    EXPECT_EQ(now.exitCode, 0);
    EXPECT_TRUE(QRegularExpression("^\\d{8}\n$").match(now.out).hasMatch()) << now.out.toStdString();
}

TEST(MarlockCli, BadInputIsReportedOnStandardErrorWithAFailingStatus) {
    const Outcome badUri = marlock({"code", "https://totp/x?secret=JBSWY3DPEHPK3PXP"});
    EXPECT_EQ(badUri.exitCode, 1);
    EXPECT_TRUE(badUri.out.isEmpty());
    EXPECT_EQ(badUri.err, "marlock code: Wrong scheme (expected otpauth): https\n");

    const Outcome badDigits = marlock({"uri", "--secret", "JBSWY3DPEHPK3PXP", "--digits", "10"});
    EXPECT_EQ(badDigits.exitCode, 1);
    EXPECT_TRUE(badDigits.err.contains("Bad digits")) << badDigits.err.toStdString();
    for (const QStringList& usage : {QStringList{"frobnicate"}, QStringList{"code"}, QStringList{}})
        EXPECT_EQ(marlock(usage).exitCode, 2) << usage.join(' ').toStdString();
}

TEST(MarlockCli, UriWritesAKeyThatCodeReadsBack) {
    const Outcome uri =
        marlock({"uri", "--issuer", "ACME Co", "--account", "john@example.org", "--secret",
                 "gezd gnbv gy3t qojq gezd gnbv gy3t qojq", "--digits", "8", "--algorithm", "sha1"});
    ASSERT_EQ(uri.exitCode, 0) << uri.err.toStdString();
    EXPECT_EQ(uri.out, "otpauth://totp/ACME%20Co:john%40example.org?secret=GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ"
                       "&issuer=ACME%20Co&algorithm=SHA1&digits=8&period=30\n");
    EXPECT_EQ(marlock({"code", "--time", "1111111109", uri.out.trimmed()}).out, "07081804\n");
}
