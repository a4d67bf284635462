#pragma once
// UpdateProgressSheet: the sheet shown while updates are looked for (windowUpdateProgress),
// with its indeterminate bar (updateProgressBar) and a Cancel button that sets the check's
// cancel flag. Lifecycle: owned by the main window. Main thread only.

#include "ProgressSheet.h"

#include <memory>

namespace Ui {
class UpdateProgressSheet;
}
class QProgressBar;

class UpdateProgressSheet final : public ProgressSheet {
    Q_OBJECT
public:
    explicit UpdateProgressSheet(QWidget* parent);
    ~UpdateProgressSheet() override;

    QProgressBar* updateProgressBar() const;

private:
    std::unique_ptr<Ui::UpdateProgressSheet> ui_;
};
