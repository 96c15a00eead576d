#include "companion/SettingsDialog.h"

#include "companion/SyncPasscodeDialog.h"

#include "common/TokenSync.h"

#include "marlockCompanionCommon/platform/runtime/Identity.h"
#include "marlockCompanionCommon/platform/storage/UbiquitousKeyValueStore.h"
#include "marlockCompanionCommon/platform/storage/UserDefaults.h"
#include "marlockCompanionCommon/preferences/ViewPreferencesManager.h"
#include "marlockCompanionCommon/sync/iCloudManager.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

namespace companion {

namespace {

struct Separator {
    const char* title;
    QString value;
};

const Separator separators[] = {{QT_TRANSLATE_NOOP("companion::SettingsDialog", "None (123456)"), QString()},
                                {QT_TRANSLATE_NOOP("companion::SettingsDialog", "Space (123 456)"), " "},
                                {QT_TRANSLATE_NOOP("companion::SettingsDialog", "Hyphen (123-456)"), "-"},
                                {QT_TRANSLATE_NOOP("companion::SettingsDialog", "Dot (123·456)"), "·"}};

} // namespace

SettingsDialog::SettingsDialog(TokenSync* sync, QWidget* parent)
    : QDialog(parent)
    , sync_(sync)
    , syncOn_(new QCheckBox(tr("S&ync tokens with my other computers"), this))
    , syncState_(new QLabel(this))
    , problem_(new QLabel(this))
    , changePasscode_(new QPushButton(tr("C&hange Passcode…"), this))
    , erase_(new QPushButton(tr("&Erase Synced Data…"), this))
    , folder_(new QLineEdit(this))
    , chooseFolder_(new QPushButton(tr("C&hoose…"), this))
    , separator_(new QComboBox(this))
    , changeColor_(new QCheckBox(tr("Turn codes &red in their last %1 seconds").arg(5), this))
    , animate_(new QCheckBox(tr("&Roll the digits to the next code"), this)) {
    setWindowTitle(tr("Settings"));
    setMinimumWidth(480);
    auto* layout = new QVBoxLayout(this);

    auto* syncBox = new QGroupBox(tr("Sync"), this);
    auto* syncForm = new QFormLayout(syncBox);
    auto* explanation =
        new QLabel(tr("Tokens travel encrypted with a passcode of your choice through a folder "
                      "that a sync tool (Syncthing, Nextcloud …) shares between your computers."),
                   syncBox);
    explanation->setWordWrap(true);
    syncForm->addRow(explanation);
    syncForm->addRow(syncOn_);
    syncState_->setWordWrap(true);
    syncForm->addRow(syncState_);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(changePasscode_);
    buttons->addWidget(erase_);
    buttons->addStretch();
    syncForm->addRow(buttons);
    auto* folderRow = new QHBoxLayout;
    folder_->setReadOnly(true);
    folderRow->addWidget(folder_, 1);
    folderRow->addWidget(chooseFolder_);
    syncForm->addRow(tr("Cloud folder:"), folderRow);
    problem_->setWordWrap(true);
    syncForm->addRow(problem_);
    layout->addWidget(syncBox);

    auto* displayBox = new QGroupBox(tr("Codes"), this);
    auto* displayForm = new QFormLayout(displayBox);
    auto* preferences = ViewPreferencesManager::sharedManager();
    for (const Separator& separator : separators)
        separator_->addItem(tr(separator.title), separator.value);
    const int known = separator_->findData(preferences->getSeparatorString());
    if (known < 0)
        separator_->addItem(tr("“%1”").arg(preferences->getSeparatorString()),
                            preferences->getSeparatorString());
    separator_->setCurrentIndex(known < 0 ? separator_->count() - 1 : known);
    displayForm->addRow(tr("&Group digits with:"), separator_);
    changeColor_->setChecked(preferences->getChangeColorWhenCodeWillChange());
    animate_->setChecked(preferences->getAnimateCodeChanges());
    displayForm->addRow(changeColor_);
    displayForm->addRow(animate_);
    layout->addWidget(displayBox);

    auto* close = new QDialogButtonBox(QDialogButtonBox::Close, this);
    layout->addWidget(close);
    connect(close, &QDialogButtonBox::rejected, this, &QDialog::reject);

    connect(syncOn_, &QCheckBox::toggled, this, &SettingsDialog::syncToggled);
    connect(changePasscode_, &QPushButton::clicked, this, &SettingsDialog::changePasscode);
    connect(erase_, &QPushButton::clicked, this, &SettingsDialog::eraseSyncedData);
    connect(chooseFolder_, &QPushButton::clicked, this, &SettingsDialog::chooseFolder);
    connect(sync_, &TokenSync::stateChanged, this, &SettingsDialog::showSyncState);
    connect(separator_, &QComboBox::currentIndexChanged, this, [this] {
        ViewPreferencesManager::sharedManager()->setSeparatorString(separator_->currentData().toString());
    });
    connect(changeColor_, &QCheckBox::toggled, this,
            [](bool on) { ViewPreferencesManager::sharedManager()->setChangeColorWhenCodeWillChange(on); });
    connect(animate_, &QCheckBox::toggled, this,
            [](bool on) { ViewPreferencesManager::sharedManager()->setAnimateCodeChanges(on); });
    showSyncState();
}

void SettingsDialog::showSyncState() {
    iCloudManager* manager = iCloudManager::sharedManager();
    const QSignalBlocker blocker(syncOn_);
    syncOn_->setChecked(manager->iCloudEnabled());
    syncState_->setText(sync_->statusText());
    changePasscode_->setEnabled(manager->iCloudEnabled());
    erase_->setEnabled(manager->iCloudDataPresent());
    bool isDefault = false;
    folder_->setText(platform::UbiquitousKeyValueStore::defaultFolderPath(&isDefault));
    // The environment variable wins over the setting; choosing here would change nothing.
    chooseFolder_->setEnabled(!qEnvironmentVariableIsSet("MARLOCK_CLOUD_FOLDER"));
}

void SettingsDialog::report(const QString& problem) {
    problem_->setStyleSheet(QStringLiteral("color: #d73a2f"));
    problem_->setText(problem);
    showSyncState();
}

void SettingsDialog::syncToggled(bool on) {
    QString problem;
    if (!on) {
        (void)sync_->disable(&problem);
        return report(problem);
    }
    const bool joining = iCloudManager::sharedManager()->iCloudDataPresent();
    SyncPasscodeDialog dialog(
        joining ? SyncPasscodeDialog::Kind::existingPasscode : SyncPasscodeDialog::Kind::newPasscode, true,
        joining ? tr("The folder holds tokens synced by another computer. Enter the passcode "
                     "chosen there; this computer's tokens join them.")
                : tr("Choose a passcode. Your other computers will need it to join; it "
                     "cannot be recovered if lost."),
        this);
    if (dialog.exec() != QDialog::Accepted) {
        showSyncState();
        return;
    }
    (void)sync_->enable(dialog.passcode(), dialog.save(), &problem);
    report(problem);
}

void SettingsDialog::changePasscode() {
    SyncPasscodeDialog dialog(SyncPasscodeDialog::Kind::newPasscode, false,
                              tr("The synced tokens are encrypted again with the new passcode. Your other "
                                 "computers will ask for it."),
                              this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    QString problem;
    (void)sync_->changePasscode(dialog.passcode(), &problem);
    report(problem);
}

void SettingsDialog::eraseSyncedData() {
    QMessageBox question(QMessageBox::Warning, tr("Erase Synced Data?"), tr("Erase the synced data?"),
                         QMessageBox::Cancel, this);
    question.setInformativeText(
        tr("The encrypted tokens are deleted from the cloud folder and sync is switched "
           "off. The tokens on this computer stay; your other computers keep theirs "
           "but can no longer sync."));
    QPushButton* erase = question.addButton(tr("Erase"), QMessageBox::DestructiveRole);
    question.setDefaultButton(QMessageBox::Cancel);
    question.exec();
    if (question.clickedButton() != static_cast<QAbstractButton*>(erase))
        return;
    QString problem;
    (void)sync_->reset(&problem);
    report(problem);
}

void SettingsDialog::chooseFolder() {
    const QString folder = QFileDialog::getExistingDirectory(this, tr("Cloud Folder"), folder_->text());
    if (folder.isEmpty())
        return;
    platform::UserDefaults* defaults =
        platform::UserDefaults::suiteNamed(platform::Identity::applicationGroup());
    defaults->setObject(folder, platform::UbiquitousKeyValueStore::folderKey);
    (void)defaults->synchronize();
    showSyncState();
    problem_->setStyleSheet(QString());
    problem_->setText(tr("The programs use %1 from their next start.").arg(folder));
}

} // namespace companion
