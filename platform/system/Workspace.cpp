// The process-wide workspace instance and its test replacement.

#include "platform/system/Workspace.h"

#include <mutex>

namespace sys {

namespace {

std::mutex& instanceMutex()
{
    static std::mutex mutex;
    return mutex;
}

std::unique_ptr<Workspace>& replacementSlot()
{
    static std::unique_ptr<Workspace> replacement;
    return replacement;
}

} // namespace

Workspace& workspace()
{
    static const std::unique_ptr<Workspace> platform = makePlatformWorkspace();
    std::lock_guard lock(instanceMutex());
    if (Workspace* replacement = replacementSlot().get())
        return *replacement;
    return *platform;
}

void setWorkspaceForTesting(std::unique_ptr<Workspace> replacement)
{
    std::lock_guard lock(instanceMutex());
    replacementSlot() = std::move(replacement);
}

} // namespace sys
