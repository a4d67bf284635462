#include "MainWindow.h"

#include "AppController.h"
#include "InstallProgressSheet.h"
#include "PreferencesWindow.h"
#include "SheetFocus.h"
#include "UpdateProgressSheet.h"
#include "UpdateTableModel.h"
#include "platform/system/UserDefaults.h"
#include "ui_MainWindow.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QHeaderView>
#include <QKeyEvent>

namespace {

const QString kGeometryKey = QStringLiteral("windowMainGeometry");
const QString kSplitterKey = QStringLiteral("windowMainSplitter");

QList<QKeySequence> withFallback(QKeySequence::StandardKey key, const QKeySequence& fallback)
{
    QList<QKeySequence> keys = QKeySequence::keyBindings(key);
    if (!keys.contains(fallback))
        keys.append(fallback);
    return keys;
}

} // namespace

MainWindow::MainWindow(AppController& controller, const QString& resourceFolder)
    : QMainWindow(nullptr), controller_(controller), ui_(std::make_unique<Ui::MainWindow>())
{
    ui_->setupUi(this);
    model_ = new UpdateTableModel(controller_, this);
    updateProgress_ = new UpdateProgressSheet(this);
    updateProgress_->setCancelAction([this] { controller_.cancelUpdateCheck(); });
    installProgress_ = new InstallProgressSheet(this);
    installProgress_->setCancelAction([this] { controller_.cancelInstall(); });
    preferences_ = new PreferencesWindow(controller_, this);

    ui_->webView->setResourceFolder(resourceFolder);
    ui_->webView->setNavigationHandler([this](const QString& url) { controller_.decidePolicyForNavigation(url, true); });
    connect(ui_->installBtn, &QPushButton::clicked, this, [this] { controller_.installClick(); });
    setUpTable();
    setUpMenus();
    sheets::keepKeysOnSheets(this);
    sheets::keepKeysOnSheets(installProgress_); // its running-application and checksum sheets
    validateMenuItems();
    restoreWindowState();
}

MainWindow::~MainWindow() = default;

void MainWindow::setUpTable()
{
    QTableView* table = ui_->tableView;
    table->setModel(model_);
    QHeaderView* header = table->horizontalHeader();
    header->setSectionResizeMode(UpdateTableModel::CheckColumn, QHeaderView::ResizeToContents);
    header->setSectionResizeMode(UpdateTableModel::TitleColumn, QHeaderView::Stretch);
    header->setSectionResizeMode(UpdateTableModel::SizeColumn, QHeaderView::ResizeToContents);
    header->setSectionResizeMode(UpdateTableModel::RequirementsColumn, QHeaderView::ResizeToContents);
    header->setMinimumSectionSize(28);
    // Rows with seven pixels of room above and below the text, as the list has always had.
    table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    table->verticalHeader()->setDefaultSectionSize(table->fontMetrics().height() + 14);
    connect(table->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            [this] { controller_.tableViewSelectionDidChange(selectedRow()); });
    ui_->splitter->setStretchFactor(0, 1);
    ui_->splitter->setStretchFactor(1, 2);
}

void MainWindow::setUpMenus()
{
    ui_->menuCheckForUpdates->setShortcuts(withFallback(QKeySequence::Refresh, QKeySequence(Qt::CTRL | Qt::Key_R)));
    ui_->closeWindow->setShortcuts(QKeySequence::Close);
    ui_->quit->setShortcuts(withFallback(QKeySequence::Quit, QKeySequence(Qt::CTRL | Qt::Key_Q)));
    ui_->showPreferences->setShortcuts(withFallback(QKeySequence::Preferences, QKeySequence(Qt::CTRL | Qt::Key_Comma)));

    connect(ui_->menuCheckForUpdates, &QAction::triggered, this, [this] {
        if (controller_.validateUserInterfaceItem(QStringLiteral("menuCheckForUpdates:")))
            controller_.menuCheckForUpdates();
    });
    connect(ui_->menuResetIgnoredUpdates, &QAction::triggered, this, [this] { controller_.menuResetIgnoredUpdates(); });
    connect(ui_->closeWindow, &QAction::triggered, this, &QWidget::close);
    connect(ui_->quit, &QAction::triggered, this, [] { QCoreApplication::quit(); });
    connect(ui_->showPreferences, &QAction::triggered, this, &MainWindow::showPreferences);
    connect(ui_->helpReportBug, &QAction::triggered, this, [this] { controller_.helpReportBug(); });
    connect(ui_->helpSuggestFeature, &QAction::triggered, this, [this] { controller_.helpSuggestFeature(); });
    connect(ui_->helpVLHome, &QAction::triggered, this, [this] { controller_.helpVLHome(); });
    connect(ui_->viewLog, &QAction::triggered, this, [this] { controller_.viewLog(); });
    connect(ui_->viewHelperLog, &QAction::triggered, this, [this] { controller_.viewHelperLog(); });
    connect(ui_->gatherLogs, &QAction::triggered, this, [this] { controller_.gatherLogs(); });
    connect(ui_->fileMenu, &QMenu::aboutToShow, this, &MainWindow::validateMenuItems);
}

void MainWindow::validateMenuItems()
{
    for (QAction* action : findChildren<QAction*>()) {
        if (!action->objectName().isEmpty() && !action->isSeparator())
            action->setEnabled(controller_.validateUserInterfaceItem(action->objectName() + QLatin1Char(':')));
    }
}

void MainWindow::reloadTable()
{
    const int previous = selectedRow();
    model_->reload();
    const int rows = model_->rowCount();
    ui_->statusLine->setText(rows == 0   ? QString()
                             : rows == 1 ? QStringLiteral("1 update available")
                                         : QStringLiteral("%1 updates available").arg(rows));
    // As a reloaded list keeps its selected row while that row still exists.
    if (previous >= 0 && previous < rows)
        ui_->tableView->selectRow(previous);
    else
        controller_.tableViewSelectionDidChange(-1);
}

void MainWindow::selectFirstItem()
{
    if (model_->rowCount() > 0)
        ui_->tableView->selectRow(0);
}

void MainWindow::setInstallButtonEnabled(bool enabled)
{
    ui_->installBtn->setEnabled(enabled);
}

void MainWindow::showPreferences()
{
    preferences_->show();
    preferences_->raise();
    preferences_->activateWindow();
}

int MainWindow::selectedRow() const
{
    const QModelIndexList rows = ui_->tableView->selectionModel()->selectedRows();
    return rows.isEmpty() ? -1 : rows.first().row();
}

void MainWindow::keyPressEvent(QKeyEvent* event)
{
    const bool isReturn = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    if (isReturn && event->modifiers() == Qt::NoModifier && ui_->installBtn->isEnabled()) {
        ui_->installBtn->animateClick();
        return;
    }
    QMainWindow::keyPressEvent(event);
}

void MainWindow::showEvent(QShowEvent* event)
{
    QMainWindow::showEvent(event);
    validateMenuItems();
}

void MainWindow::hideEvent(QHideEvent* event)
{
    QMainWindow::hideEvent(event);
    validateMenuItems();
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    saveWindowState();
    QMainWindow::closeEvent(event);
}

void MainWindow::saveWindowState() const
{
    sys::UserDefaults& defaults = sys::UserDefaults::standard();
    defaults.setObject(saveGeometry(), kGeometryKey);
    defaults.setObject(ui_->splitter->saveState(), kSplitterKey);
}

void MainWindow::restoreWindowState()
{
    const sys::UserDefaults& defaults = sys::UserDefaults::standard();
    const QVariant geometry = defaults.objectForKey(kGeometryKey);
    if (geometry.typeId() == QMetaType::QByteArray)
        restoreGeometry(geometry.toByteArray());
    const QVariant splitter = defaults.objectForKey(kSplitterKey);
    if (splitter.typeId() == QMetaType::QByteArray)
        ui_->splitter->restoreState(splitter.toByteArray());
}

QTableView* MainWindow::tableView() const { return ui_->tableView; }
ReleaseNotesBrowser* MainWindow::webView() const { return ui_->webView; }
QPushButton* MainWindow::installBtn() const { return ui_->installBtn; }
QLabel* MainWindow::statusLine() const { return ui_->statusLine; }
