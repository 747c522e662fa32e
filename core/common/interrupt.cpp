#include "core/common/interrupt.h"

#include <atomic>
#include <csignal>

namespace norvane {

namespace {

// Lock-free, so the handler touches nothing but this word.
std::atomic<int> received{0};
static_assert(std::atomic<int>::is_always_lock_free);

void onInterrupt(int signal) {
    int expected = 0;
    received.compare_exchange_strong(expected, signal);
}

}  // namespace

void installInterruptHandlers() {
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    // Reads and writes resume after the handler; the run notices the flag at
    // its next poll (before each job, file, channel, or block written).
    action.sa_flags = SA_RESTART;
    for (int signal : {SIGINT, SIGTERM, SIGHUP}) {
        ::sigaction(signal, &action, nullptr);
    }
}

int interruptSignal() noexcept {
    return received.load(std::memory_order_relaxed);
}

void requestInterrupt(int signal) noexcept {
    onInterrupt(signal);
}

void clearInterrupt() noexcept {
    received.store(0, std::memory_order_relaxed);
}

}  // namespace norvane
