// The process-wide workspace instance and its test replacement.

#include "platform/system/Workspace.h"

#include <QMutex>

namespace sys {

namespace {

QMutex& instanceMutex()
{
    static QMutex mutex;
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
    QMutexLocker lock(&instanceMutex());
    if (Workspace* replacement = replacementSlot().get())
        return *replacement;
    return *platform;
}

void setWorkspaceForTesting(std::unique_ptr<Workspace> replacement)
{
    QMutexLocker lock(&instanceMutex());
    replacementSlot() = std::move(replacement);
}

} // namespace sys
