#include "InstallProgressSheet.h"

#include "ui_InstallProgressSheet.h"

#include <QPushButton>

#include <algorithm>

namespace {
// Bars count in thousandths: a byte count of several GiB does not fit the bar's int range.
constexpr int kBarSteps = 1000;
} // namespace

InstallProgressSheet::InstallProgressSheet(QWidget* parent)
    : ProgressSheet(parent), ui_(std::make_unique<Ui::InstallProgressSheet>())
{
    ui_->setupUi(this);
    setProgressBar(ui_->installProgressBar);
    // The byte line keeps its room while hidden, so the sheet does not jump.
    QSizePolicy policy = ui_->downloadDataText->sizePolicy();
    policy.setRetainSizeWhenHidden(true);
    ui_->downloadDataText->setSizePolicy(policy);
    QPushButton* cancel = ui_->buttonBox->button(QDialogButtonBox::Cancel);
    cancel->setAutoDefault(false);
    cancel->setAccessibleName(QStringLiteral("Cancel the installation"));
    connect(ui_->buttonBox, &QDialogButtonBox::rejected, this, &ProgressSheet::reject);
}

InstallProgressSheet::~InstallProgressSheet() = default;

void InstallProgressSheet::setStatus(const QString& status)
{
    ui_->installStatusText->setText(status);
    ui_->installStatusText->repaint();
}

void InstallProgressSheet::startIndeterminate()
{
    ui_->installProgressBar->setRange(0, 0);
    ui_->installProgressBar->setValue(0);
}

void InstallProgressSheet::setDownloadProgress(double expectedLength, double received)
{
    QProgressBar* bar = ui_->installProgressBar;
    if (bar->maximum() != kBarSteps)
        bar->setRange(0, kBarSteps);
    const double fraction = expectedLength > 0 ? std::clamp(received / expectedLength, 0.0, 1.0) : 0.0;
    bar->setValue(int(fraction * kBarSteps));
}

void InstallProgressSheet::setReceivedDataText(const QString& text)
{
    ui_->downloadDataText->setText(text);
    ui_->downloadDataText->setVisible(true);
}

void InstallProgressSheet::hideReceivedData()
{
    ui_->downloadDataText->setVisible(false);
}

QLabel* InstallProgressSheet::installStatusText() const
{
    return ui_->installStatusText;
}

QProgressBar* InstallProgressSheet::installProgressBar() const
{
    return ui_->installProgressBar;
}

QLabel* InstallProgressSheet::downloadDataText() const
{
    return ui_->downloadDataText;
}
