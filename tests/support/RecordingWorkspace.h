#pragma once
// RecordingWorkspace: a workspace for in-process tests that records what would be opened
// (files and addresses) instead of starting the desktop's opener; every other operation goes to
// the platform's own workspace. Installed for one scope with ScopedRecordingWorkspace.
// Any thread may call it; read opened() on the test's thread.

#include "platform/system/Workspace.h"

#include <QMutex>
#include <QStringList>

namespace vltest {

class RecordingWorkspace final : public sys::Workspace {
public:
    QStringList opened() const
    {
        QMutexLocker lock(&mutex_);
        return opened_;
    }

    bool recycle(const QString& s, const QString& t, const QString& n) override { return platform_->recycle(s, t, n); }
    bool copy(const QString& s, const QString& d, const QString& n) override { return platform_->copy(s, d, n); }
    bool openFile(const QString& path) override { return record(path); }
    bool openURL(const QString& url) override { return record(url); }
    void notifyFileChanged(const QString& path) override { platform_->notifyFileChanged(path); }
    bool isPackage(const QString& path) override { return platform_->isPackage(path); }
    QStringList mountedLocalVolumes() override { return platform_->mountedLocalVolumes(); }
    std::optional<QString> fullPathForApplication(const QString& id) override { return platform_->fullPathForApplication(id); }

private:
    bool record(const QString& item)
    {
        QMutexLocker lock(&mutex_);
        opened_ << item;
        return true;
    }
    std::unique_ptr<sys::Workspace> platform_ = sys::makePlatformWorkspace();
    mutable QMutex mutex_;
    QStringList opened_;
};

// Installs a RecordingWorkspace as the process's workspace for its own lifetime.
class ScopedRecordingWorkspace {
public:
    ScopedRecordingWorkspace()
    {
        auto workspace = std::make_unique<RecordingWorkspace>();
        workspace_ = workspace.get();
        sys::setWorkspaceForTesting(std::move(workspace));
    }
    ~ScopedRecordingWorkspace() { sys::setWorkspaceForTesting(nullptr); }
    ScopedRecordingWorkspace(const ScopedRecordingWorkspace&) = delete;
    ScopedRecordingWorkspace& operator=(const ScopedRecordingWorkspace&) = delete;

    QStringList opened() const { return workspace_->opened(); }

private:
    RecordingWorkspace* workspace_; // owned by the process-wide slot
};

} // namespace vltest
