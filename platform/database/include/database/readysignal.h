#pragma once
#include <cerrno>
#include <cstdint>
#include <sys/eventfd.h>
#include <unistd.h>

// An event descriptor used as a level rather than a counter: readable exactly
// while the producer says something is ready, so a consumer's event loop
// (a socket notifier) wakes for it without any event queue shared between
// the threads. `signalled` is the level last set; the caller holds the lock
// that guards it.
inline int makeReadyDescriptor() { return ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC); }

inline void setReady(int fd, bool ready, bool& signalled)
{
    if (ready == signalled) return;
    std::uint64_t value = 1;
    ssize_t n;
    // A write makes the counter readable, a read empties it.
    do {
        n = ready ? ::write(fd, &value, sizeof value) : ::read(fd, &value, sizeof value);
    } while (n < 0 && errno == EINTR);
    signalled = ready;
}
