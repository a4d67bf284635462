#pragma once
// InstallProgressSheet: the sheet of a download and installation pass (windowInstallProgress):
// a status line (installStatusText), a bar (installProgressBar) that is indeterminate while
// installing or when the server sent no length, and determinate while bytes of a known length
// arrive, and a byte line (downloadDataText) shown only then. Cancel sets the pass's flag.
//
// Lifecycle: owned by the main window. Main thread only.

#include "ProgressSheet.h"

#include <memory>

namespace Ui {
class InstallProgressSheet;
}
class QLabel;
class QProgressBar;

class InstallProgressSheet final : public ProgressSheet {
    Q_OBJECT
public:
    explicit InstallProgressSheet(QWidget* parent);
    ~InstallProgressSheet() override;

    void setStatus(const QString& status);
    // The bar restarts as an indeterminate one.
    void startIndeterminate();
    // Bytes of a download of known length; the bar becomes determinate.
    void setDownloadProgress(double expectedLength, double received);
    void setReceivedDataText(const QString& text);
    void hideReceivedData();

    QLabel* installStatusText() const;
    QProgressBar* installProgressBar() const;
    QLabel* downloadDataText() const;

private:
    std::unique_ptr<Ui::InstallProgressSheet> ui_;
};
