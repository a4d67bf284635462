// The update list as the controller serves it: the table's data-source rules, the check
// column's edits, the selection that shows release notes, the install button's state, the
// enabled state of menu items and the alert that may end the application.
//
// All on the main thread, except showAlert(), which any thread may call. The table reads the
// records through its own copy (see the Widgets model), so a check that holds the lock of
// dataArray on a worker never blocks painting.

#include "AppController.h"

#include "ExceptionGuard.h"
#include "UpdateRecord.h"
#include "lifecycle/PreferenceKeys.h"
#include "platform/foundation/Foundation.h"
#include "platform/system/MainThread.h"
#include "platform/system/UserDefaults.h"

namespace {

const QString kCheckColumn = QStringLiteral("check");
const QString kTitleColumn = QStringLiteral("title");
const QString kSizeColumn = QStringLiteral("curSize");
const QString kRequirementsColumn = QStringLiteral("requirements");

bool isManualOnly(const UpdateRecord& record)
{
    return fnd::boolValue(record.value(record::kManualOnly));
}

} // namespace

int AppController::numberOfRowsInTableView()
{
    std::lock_guard lock(dataArrayLock);
    return int(dataArray.size());
}

QVariant AppController::tableViewObjectValue(const QList<UpdateRecord>& rows, const QString& column, int row)
{
    if (row < 0 || row >= rows.size())
        return {};
    const UpdateRecord& record = rows.at(row);
    if (column == kCheckColumn)
        return isManualOnly(record) ? 0 : fnd::intValue(record.value(record::kSelected));
    if (column == kTitleColumn) {
        QString title = record.value(record::kTitle).toString();
        if (fnd::boolValue(record.value(record::kPaidUpgrade)))
            title += QStringLiteral(" (Paid Upgrade)");
        if (isManualOnly(record))
            title += QStringLiteral(" (Manual Only)");
        return title;
    }
    if (column == kSizeColumn)
        return record.value(record::kSize);
    if (column == kRequirementsColumn)
        return record.value(record::kRequirementsString);
    return {};
}

bool AppController::tableViewCheckCellEnabled(const UpdateRecord& record)
{
    return !isManualOnly(record);
}

void AppController::tableViewSetObjectValue(const QVariant& value, const QString& column, int row)
{
    guard::guarded(hasGUI, "-[AppController tableView:setObjectValue:forTableColumn:row:]", [&] {
        if (column != kCheckColumn)
            return;
        {
            std::lock_guard lock(dataArrayLock);
            if (row < 0 || row >= dataArray.size())
                return;
            dataArray[row].insert(record::kSelected, value);
        }
        updateInstallButtonStatus();
    });
}

void AppController::tableViewSelectionDidChange(int selectedRow)
{
    guard::guarded(hasGUI, "-[AppController tableViewSelectionDidChange:]", [&] {
        std::optional<UpdateRecord> selected;
        {
            std::lock_guard lock(dataArrayLock);
            if (selectedRow >= 0 && selectedRow < dataArray.size())
                selected = dataArray.at(selectedRow);
        }
        setWebViewHTMLString(selected ? changeListForUpdate(*selected) : QString());
    });
}

void AppController::updateInstallButtonStatus()
{
    guard::guarded(hasGUI, "-[AppController updateInstallButtonStatus]", [&] {
        bool anySelected = false;
        {
            std::lock_guard lock(dataArrayLock);
            for (const UpdateRecord& record : std::as_const(dataArray))
                anySelected = anySelected || fnd::intValue(record.value(record::kSelected)) == 1;
        }
        ui().setInstallButtonEnabled(anySelected);
    });
}

bool AppController::validateUserInterfaceItem(const QString& action)
{
    if (action == QStringLiteral("menuCheckForUpdates:"))
        return ui().isMainWindowVisible();
    return true;
}

void AppController::showAlert(const QString& message, const QString& info)
{
    sys::runOnMainThreadAndWait([&] { ui().showAlert(message, info); });
}

// Every alert shown through showAlert() ends the application when "autoQuit" is 1, not only
// "No updates found": an updater opened for one purpose closes once it has said its result.
void AppController::noUpdateAlertDidEnd()
{
    if (sys::UserDefaults::standard().integerForKey(prefs::kAutoQuit) == 1)
        ui().terminateApplication();
}
