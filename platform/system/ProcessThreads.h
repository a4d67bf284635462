#pragma once
// This process's own threads as the kernel lists them, for the threads a library starts
// and ends without letting anyone join them: after such a thread has said it is done, its
// system thread still runs its per-thread clean-up, and only the kernel's list tells when
// it is gone for good.
// Stateless functions: every call reads the list afresh. Any thread.

#include <QByteArray>
#include <QList>

#include <chrono>
#include <sys/types.h>

namespace sys {

// The kernel ids of this process's threads whose name is `name`. The kernel keeps at most
// the first 15 bytes of a thread's name, so `name` is compared as cut to that length.
[[nodiscard]] QList<pid_t> threadsNamed(const QByteArray& name);

// Names the calling thread as the kernel lists it (cut to 15 bytes), as Qt names the
// threads it starts.
void setCurrentThreadName(const QByteArray& name);

// Waits until at least one of `threads` has ended; true at once for an empty list, false
// when `limit` passed first.
[[nodiscard]] bool waitUntilOneEnds(const QList<pid_t>& threads, std::chrono::milliseconds limit);

} // namespace sys
