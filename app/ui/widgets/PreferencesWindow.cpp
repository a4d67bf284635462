#include "PreferencesWindow.h"

#include "AppController.h"
#include "lifecycle/PreferenceKeys.h"
#include "platform/system/UserDefaults.h"
#include "ui_PreferencesWindow.h"

#include <QPushButton>

PreferencesWindow::PreferencesWindow(AppController& controller, QWidget* parent)
    : QDialog(parent), controller_(controller), ui_(std::make_unique<Ui::PreferencesWindow>())
{
    ui_->setupUi(this);
    connect(ui_->buttonBox, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(ui_->prefsCheckForUpdatesAtStartup, &QCheckBox::toggled, this,
            [this](bool ticked) { controller_.prefsToggleCheckForUpdatesAtStartup(ticked); });
    connect(ui_->prefsAutoUpdateCheck, &QCheckBox::toggled, this,
            [this](bool ticked) { controller_.prefsToggleAutoUpdateCheck(ticked); });
}

PreferencesWindow::~PreferencesWindow() = default;

void PreferencesWindow::setCheckForUpdatesAtStartup(bool ticked)
{
    const QSignalBlocker quiet(ui_->prefsCheckForUpdatesAtStartup);
    ui_->prefsCheckForUpdatesAtStartup->setChecked(ticked);
}

void PreferencesWindow::setAutoUpdateCheck(bool ticked)
{
    const QSignalBlocker quiet(ui_->prefsAutoUpdateCheck);
    ui_->prefsAutoUpdateCheck->setChecked(ticked);
}

// The stored values may have changed since the window was last open (another vendor
// application writes the shared file too).
void PreferencesWindow::showEvent(QShowEvent* event)
{
    controller_.loadPreferenceSettings();
    setAutoUpdateCheck(sys::UserDefaults::standard().integerForKey(prefs::kAutoUpdateCheck) == 1);
    QDialog::showEvent(event);
}

QCheckBox* PreferencesWindow::prefsCheckForUpdatesAtStartup() const { return ui_->prefsCheckForUpdatesAtStartup; }
QCheckBox* PreferencesWindow::prefsAutoUpdateCheck() const { return ui_->prefsAutoUpdateCheck; }
