#include "UpdateProgressSheet.h"

#include "ui_UpdateProgressSheet.h"

#include <QPushButton>

UpdateProgressSheet::UpdateProgressSheet(QWidget* parent)
    : ProgressSheet(parent), ui_(std::make_unique<Ui::UpdateProgressSheet>())
{
    ui_->setupUi(this);
    setProgressBar(ui_->updateProgressBar);
    QPushButton* cancel = ui_->buttonBox->button(QDialogButtonBox::Cancel);
    cancel->setAutoDefault(false);
    cancel->setAccessibleName(QStringLiteral("Cancel the check"));
    connect(ui_->buttonBox, &QDialogButtonBox::rejected, this, &ProgressSheet::reject);
}

UpdateProgressSheet::~UpdateProgressSheet() = default;

QProgressBar* UpdateProgressSheet::updateProgressBar() const
{
    return ui_->updateProgressBar;
}
