#pragma once
// WindowsFixture: the real controller with the real windows, for widget tests on Qt's
// offscreen platform. A fresh tree for HOME, TMPDIR and the system root, no update server
// unless a test starts one, and a workspace that records what would be opened in the browser.
//
// Lifecycle: one per test, on the main thread. Tests that start a worker (a check, a pass) wait
// for it with waitUntil(), which keeps the main thread serving the worker's interface requests.

#include "AppController.h"
#include "MainWindow.h"
#include "WidgetsUserInterface.h"

#include "support/LogFixture.h"
#include "support/RecordingWorkspace.h"

#include <QApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QMessageBox>
#include <gtest/gtest.h>

#include <functional>

namespace vltest {

class WindowsFixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        log_.environment().set("TMPDIR", log_.path(QStringLiteral("tmp")));
        log_.environment().set("VELMORA_UPDATE_SERVER", QStringLiteral("https://127.0.0.1:9"));
        ASSERT_TRUE(QDir().mkpath(log_.path(QStringLiteral("tmp"))));
        ASSERT_TRUE(QDir().mkpath(log_.path(QStringLiteral("sysroot/Applications"))));
        auto windows = std::make_unique<WidgetsUserInterface>(QString());
        windows_ = windows.get();
        controller_ = AppController::init(std::move(windows));
        windows_->attach(*controller_);
    }
    void TearDown() override
    {
        // Nothing a worker still holds may outlive the controller.
        waitUntil([&] { return std::unique_lock(controller_->controllerLock, std::try_to_lock).owns_lock(); });
        for (QWidget* window : QApplication::topLevelWidgets())
            window->hide();
    }

    // Turns the event loop until `done` holds; false after a generous guard against hanging.
    static bool waitUntil(const std::function<bool()>& done)
    {
        QDeadlineTimer guard(60000);
        while (!done() && !guard.hasExpired())
            QApplication::processEvents(QEventLoop::AllEvents, 20);
        return done();
    }
    // The alert box shown on top of `window` (or anywhere, without one), once it is up.
    static QMessageBox* waitForAlert()
    {
        QMessageBox* found = nullptr;
        waitUntil([&] {
            for (QWidget* widget : QApplication::allWidgets()) {
                if (auto* box = qobject_cast<QMessageBox*>(widget); box && box->isVisible())
                    found = box;
            }
            return found != nullptr;
        });
        return found;
    }
    void setRows(const QList<UpdateRecord>& rows)
    {
        {
            std::lock_guard lock(controller_->dataArrayLock);
            controller_->dataArray = rows;
        }
        windows_->reloadTableView();
        controller_->updateInstallButtonStatus();
    }
    MainWindow& main() { return *windows_->mainWindow(); }

    LogFixture log_;
    ScopedRecordingWorkspace workspace_;
    WidgetsUserInterface* windows_ = nullptr; // owned by the controller
    std::unique_ptr<AppController> controller_;
};

} // namespace vltest
