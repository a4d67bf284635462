#pragma once
// "On the main thread, waiting": runs `work` on the application's main thread and returns
// when it has run. Called on the main thread it runs directly. Without a QCoreApplication
// it runs directly too. Work still queued when the application object goes is dropped and
// its caller returns. Must not be called from a thread the main thread is waiting for.
// The hand-off uses std locks, so the thread checker sees it (see MainThread.cpp).

#include <functional>

namespace sys {

void runOnMainThreadAndWait(const std::function<void()>& work);
bool isMainThread();

} // namespace sys
