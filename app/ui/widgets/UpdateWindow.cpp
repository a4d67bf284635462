#include "UpdateWindow.h"

#include "AppController.h"
#include "ui_UpdateWindow.h"

#include <QIcon>

UpdateWindow::UpdateWindow(AppController& controller, const QString& resourceFolder)
    : QDialog(nullptr), controller_(controller), ui_(std::make_unique<Ui::UpdateWindow>())
{
    ui_->setupUi(this);
    QFont headline = ui_->updateInfoLabel->font();
    headline.setBold(true);
    ui_->updateInfoLabel->setFont(headline);
    const QIcon icon(resourceFolder + QStringLiteral("/AppIcon.png"));
    if (!icon.isNull())
        ui_->appIcon->setPixmap(icon.pixmap(QSize(64, 64), devicePixelRatio()));
    ui_->updateWebView->setResourceFolder(resourceFolder);
    ui_->updateWebView->setNavigationHandler(
        [this](const QString& url) { controller_.decidePolicyForNavigation(url, true); });

    connect(ui_->updateCheckAtStartup, &QCheckBox::toggled, this,
            [this](bool ticked) { controller_.toggleCheckAtStartup(ticked); });
    connect(ui_->skipButton, &QPushButton::clicked, this, [this] { controller_.updateIgnoreVersionClick(); });
    connect(ui_->remindLaterButton, &QPushButton::clicked, this, [this] { controller_.updateRemindLaterClick(); });
    connect(ui_->installUpdateButton, &QPushButton::clicked, this, [this] { controller_.updateInstallClick(); });
    ui_->installUpdateButton->setFocus();
}

UpdateWindow::~UpdateWindow() = default;

void UpdateWindow::setHeadline(const QString& text)
{
    ui_->updateInfoLabel->setText(text);
}

void UpdateWindow::setCheckAtStartup(bool ticked)
{
    const QSignalBlocker quiet(ui_->updateCheckAtStartup);
    ui_->updateCheckAtStartup->setChecked(ticked);
}

void UpdateWindow::reject()
{
    controller_.updateRemindLaterClick();
}

QLabel* UpdateWindow::updateInfoLabel() const { return ui_->updateInfoLabel; }
QCheckBox* UpdateWindow::updateCheckAtStartup() const { return ui_->updateCheckAtStartup; }
ReleaseNotesBrowser* UpdateWindow::updateWebView() const { return ui_->updateWebView; }
QPushButton* UpdateWindow::skipButton() const { return ui_->skipButton; }
QPushButton* UpdateWindow::remindLaterButton() const { return ui_->remindLaterButton; }
QPushButton* UpdateWindow::installUpdateButton() const { return ui_->installUpdateButton; }
