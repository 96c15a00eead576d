#include <QProcess>
#include <QRegularExpression>

#include <gtest/gtest.h>

namespace {

struct Outcome {
    int exitCode = -1;
    QString out;
    QString err;
};

Outcome marlock(const QStringList& arguments) {
    QProcess process;
    process.start(QStringLiteral(MARLOCK_CLI_PATH), arguments);
    EXPECT_TRUE(process.waitForFinished(60000)) << arguments.join(' ').toStdString();
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

const QString rfcSha1Uri =
    QStringLiteral("otpauth://totp/RFC:test?secret=GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ&digits=8");

} // namespace

TEST(MarlockCli, DemoPrintsACodeAndTimeLeftForEachSampleToken) {
    const Outcome run = marlock({QStringLiteral("demo")});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    const QRegularExpression row(
        QStringLiteral("^RFC 6238 +sha(1|256|512)@example.org +SHA\\1 +\\d{8} +\\d+ s$"),
        QRegularExpression::MultilineOption);
    int rows = 0;
    for (auto it = row.globalMatch(run.out); it.hasNext(); it.next())
        ++rows;
    EXPECT_EQ(rows, 3) << run.out.toStdString();
}

TEST(MarlockCli, CodePrintsTheCodeOfAKeyUri) {
    const Outcome run =
        marlock({QStringLiteral("code"), QStringLiteral("--time"), QStringLiteral("59"), rfcSha1Uri});
    EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
    EXPECT_EQ(run.out, QStringLiteral("94287082\n"));

    const Outcome now = marlock({QStringLiteral("code"), rfcSha1Uri});
    EXPECT_EQ(now.exitCode, 0);
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^\\d{8}\n$")).match(now.out).hasMatch())
        << now.out.toStdString();
}

TEST(MarlockCli, BadInputIsReportedOnStandardErrorWithAFailingStatus) {
    const Outcome badUri =
        marlock({QStringLiteral("code"), QStringLiteral("https://totp/x?secret=JBSWY3DPEHPK3PXP")});
    EXPECT_EQ(badUri.exitCode, 1);
    EXPECT_TRUE(badUri.out.isEmpty());
    EXPECT_EQ(badUri.err, QStringLiteral("marlock code: Wrong scheme (expected otpauth): https\n"));

    const Outcome badDigits =
        marlock({QStringLiteral("uri"), QStringLiteral("--secret"), QStringLiteral("JBSWY3DPEHPK3PXP"),
                 QStringLiteral("--digits"), QStringLiteral("10")});
    EXPECT_EQ(badDigits.exitCode, 1);
    EXPECT_TRUE(badDigits.err.contains(QStringLiteral("Bad digits"))) << badDigits.err.toStdString();

    EXPECT_EQ(marlock({QStringLiteral("frobnicate")}).exitCode, 2);
    EXPECT_EQ(marlock({QStringLiteral("code")}).exitCode, 2);
    EXPECT_EQ(marlock({}).exitCode, 2);
}

TEST(MarlockCli, UriWritesAKeyThatCodeReadsBack) {
    const Outcome uri =
        marlock({QStringLiteral("uri"), QStringLiteral("--issuer"), QStringLiteral("ACME Co"),
                 QStringLiteral("--account"), QStringLiteral("john@example.org"), QStringLiteral("--secret"),
                 QStringLiteral("gezd gnbv gy3t qojq gezd gnbv gy3t qojq"), QStringLiteral("--digits"),
                 QStringLiteral("8"), QStringLiteral("--algorithm"), QStringLiteral("sha1")});
    ASSERT_EQ(uri.exitCode, 0) << uri.err.toStdString();
    EXPECT_EQ(
        uri.out,
        QStringLiteral("otpauth://totp/ACME%20Co:john%40example.org?secret=GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ"
                       "&issuer=ACME%20Co&algorithm=SHA1&digits=8&period=30\n"));
    const Outcome code = marlock(
        {QStringLiteral("code"), QStringLiteral("--time"), QStringLiteral("1111111109"), uri.out.trimmed()});
    EXPECT_EQ(code.out, QStringLiteral("07081804\n"));
}
