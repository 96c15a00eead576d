// The companion window and the Today panel on one profile: the window in this process, driven
// through its widgets and the keyboard; the panel a real marlock-today process, seen through the
// state it dumps (MARLOCK_STATE_DUMP); the command line as a third program. Everything travels
// through the keyring, the shared settings and the session bus, as between real programs.
#include "common/TokenStore.h"
#include "common/TokenSync.h"
#include "companion/MainWindow.h"
#include "companion/RenameDialog.h"
#include "companion/SettingsDialog.h"
#include "gui/CodeClipboard.h"
#include "gui/CodeRow.h"

#include "marlockCommon/KeyURI.h"
#include "marlockCommon/OTPToken.h"
#include "marlockCommon/TimeSource.h"
#include "marlockCompanionCommon/sync/iCloudManager.h"
#include "tests/apps/AppsTestSupport.h"

#include <QApplication>
#include <QClipboard>
#include <QComboBox>
#include <QDeadlineTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QKeyEvent>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <gtest/gtest.h>

#include <functional>

using namespace companion;

namespace {

// Spins the event loop until `condition` holds; false when it never did within a generous time.
bool eventually(const std::function<bool()>& condition) {
    QDeadlineTimer deadline(30000);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(20);
    }
    return true;
}

// The panel as its own process, and what it says it shows.
class Panel {
public:
    Panel() {
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert("QT_QPA_PLATFORM", "offscreen");
        environment.insert("MARLOCK_STATE_DUMP", dir_.filePath("panel.json"));
        process_.setProcessEnvironment(environment);
        process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process_.start(MARLOCK_TODAY_PATH, {});
    }
    ~Panel() {
        process_.terminate();
        if (!process_.waitForFinished(10000))
            process_.kill();
        process_.waitForFinished();
    }
    QJsonObject state() const {
        QFile file(dir_.filePath("panel.json"));
        return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).object()
                                              : QJsonObject();
    }
    QStringList issuers() const {
        QStringList result;
        for (const auto& row : state()[QStringLiteral("tokens")].toArray())
            result << row[QStringLiteral("issuer")].toString();
        return result;
    }
    QStringList codes() const {
        QStringList result;
        for (const auto& row : state()[QStringLiteral("tokens")].toArray())
            result << row[QStringLiteral("code")].toString();
        return result;
    }

private:
    QTemporaryDir dir_;
    QProcess process_;
};

// The window's rows, in the list's order.
QList<CodeRow*> rows(const QListWidget* list) {
    QList<CodeRow*> result;
    for (int i = 0; i < list->count(); ++i)
        result << static_cast<CodeRow*>(list->itemWidget(list->item(i)));
    return result;
}

QStringList issuers(const QListWidget* list) {
    QStringList result;
    for (const CodeRow* row : rows(list))
        result << row->token().record.issuer;
    return result;
}

int runCli(const QStringList& arguments) {
    QProcess process;
    process.start(MARLOCK_CLI_PATH, arguments);
    process.waitForFinished(60000);
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

// A key typed at `widget`, as the keyboard would.
void type(QWidget* widget, int key, const QString& text = {}) {
    QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier, text);
    QApplication::sendEvent(widget, &press);
    QKeyEvent release(QEvent::KeyRelease, key, Qt::NoModifier, text);
    QApplication::sendEvent(widget, &release);
}

// Whatever modal dialog `window` opens next gets `handle`d once it shows.
template <typename Dialog> void whenShown(std::function<void(Dialog*)> handle) {
    auto* timer = new QTimer;
    QObject::connect(timer, &QTimer::timeout, [timer, handle] {
        if (auto* dialog = qobject_cast<Dialog*>(QApplication::activeModalWidget())) {
            timer->stop();
            timer->deleteLater();
            handle(dialog);
        }
    });
    timer->start(10);
}

// A code of `uri` near now: the clock may turn over between the window's copy and this check.
bool isCurrentCode(const QString& uri, const QString& code) {
    const auto token = marlockCommon::KeyURI::parse(uri).toOTPToken();
    const double now = timeIntervalSince1970();
    return code == token->password(now) || code == token->password(now - 1.5);
}

const QString alpha = QStringLiteral("otpauth://totp/Alpha:ann?secret=MFRGGZDFMZTWQ2LK&issuer=Alpha");
const QString beta = QStringLiteral("otpauth://totp/Beta:ben?secret=KRSXG5CTMVRXEZLU&issuer=Beta");

TEST(GuiEndToEnd, ChangesInTheWindowThePanelAndTheCommandLineShowEverywhere) {
    appstest::ScopedProfile profile;
    TokenStore store;
    ASSERT_TRUE(store.reload());
    TokenSync sync(&store, iCloudManager::sharedManager(), SyncSurface::window);
    sync.start();
    MainWindow window(&store, &sync);
    window.show();
    auto* search = window.findChild<QLineEdit*>();
    auto* list = window.findChild<QListWidget*>();
    Panel panel;
    ASSERT_TRUE(eventually([&] { return panel.state().contains("tokens"); })) << "the panel never showed";

    // Added in the window by pasting a key URI: the panel shows it.
    // (Also from the search field, which has the focus: other text would go there.)
    ASSERT_TRUE(eventually([&] { return search->hasFocus(); }));
    QApplication::clipboard()->setText(alpha);
    window.addFromClipboard();
    EXPECT_EQ(issuers(list), QStringList{"Alpha"});
    EXPECT_TRUE(eventually([&] { return panel.issuers() == QStringList{"Alpha"}; }))
        << panel.issuers().join(',').toStdString();

    // Renamed in the window.
    whenShown<RenameDialog>([](RenameDialog* dialog) {
        dialog->findChildren<QLineEdit*>().first()->setText("Alpha Bank");
        dialog->accept();
    });
    window.renameToken();
    EXPECT_TRUE(eventually([&] { return panel.issuers() == QStringList{"Alpha Bank"}; }));

    // Added by the command line: both windows follow.
    ASSERT_EQ(runCli({"add", beta}), 0);
    EXPECT_TRUE(eventually([&] { return issuers(list) == QStringList({"Alpha Bank", "Beta"}); }));
    EXPECT_TRUE(eventually([&] { return panel.issuers() == QStringList({"Alpha Bank", "Beta"}); }));

    // A separator chosen in the window's settings regroups the codes in both.
    whenShown<SettingsDialog>([](SettingsDialog* dialog) {
        auto* separator = dialog->findChild<QComboBox*>();
        separator->setCurrentIndex(separator->findData("-"));
        dialog->reject();
    });
    window.openSettings();
    const auto grouped = [](const QString& code) { return code.size() == 7 && code[3] == '-'; };
    EXPECT_TRUE(eventually([&] {
        return std::ranges::all_of(panel.codes(), grouped) && panel.codes().size() == 2;
    })) << panel.codes().join(',').toStdString();
    for (const CodeRow* row : rows(list))
        EXPECT_TRUE(grouped(row->displayedCode())) << row->displayedCode().toStdString();
    // … and one set by the command line too.
    ASSERT_EQ(runCli({"preferences", "set", "separatorString", " "}), 0);
    EXPECT_TRUE(eventually([&] { return panel.codes().value(0).contains(' '); }));
    EXPECT_TRUE(eventually([&] { return rows(list).value(0)->displayedCode().contains(' '); }));

    // From the keyboard: typing filters, Enter copies the one left.
    search->setFocus();
    for (const QChar c : QStringLiteral("bet"))
        type(search, Qt::Key_A + (c.unicode() - 'a'), c);
    auto* current = list->currentItem();
    ASSERT_NE(current, nullptr);
    EXPECT_EQ(static_cast<CodeRow*>(list->itemWidget(current))->token().record.issuer, "Beta");
    int shown = 0;
    for (int i = 0; i < list->count(); ++i)
        shown += list->item(i)->isHidden() ? 0 : 1;
    EXPECT_EQ(shown, 1);
    type(search, Qt::Key_Return);
    EXPECT_TRUE(isCurrentCode(beta, QApplication::clipboard()->text()))
        << QApplication::clipboard()->text().toStdString();

    // Deleting asks first: cancelled, nothing happens; confirmed, the panel loses it too.
    whenShown<QMessageBox>([](QMessageBox* box) { box->button(QMessageBox::Cancel)->click(); });
    window.removeToken();
    EXPECT_EQ(store.tokens().size(), 2u);
    whenShown<QMessageBox>([](QMessageBox* box) {
        for (QAbstractButton* button : box->buttons())
            if (box->buttonRole(button) == QMessageBox::DestructiveRole)
                button->click();
    });
    window.removeToken();
    EXPECT_TRUE(eventually([&] { return panel.issuers() == QStringList{"Alpha Bank"}; }))
        << panel.issuers().join(',').toStdString();
}

TEST(GuiEndToEnd, ACopiedCodeLeavesTheClipboardUnlessSomethingElseWasCopied) {
    QClipboard* clipboard = QApplication::clipboard();
    copyCode("123456", std::chrono::milliseconds(50));
    EXPECT_EQ(clipboard->text(), "123456");
    EXPECT_TRUE(eventually([&] { return clipboard->text().isEmpty(); }));

    copyCode("654321", std::chrono::milliseconds(50));
    clipboard->setText("a note the person copied since");
    testsupport::spinEventLoop(std::chrono::milliseconds(200));
    EXPECT_EQ(clipboard->text(), "a note the person copied since");
}

} // namespace
