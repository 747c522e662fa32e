#pragma once

// The process-wide interrupt flag. SIGINT, SIGTERM and SIGHUP set it instead of
// killing the process, so a run stops through its ordinary cancellation path:
// the engines poll it, temporary files are removed and outputs of the job that
// was cut short are taken back.

#include "core/common/error.h"

namespace norvane {

// Thrown by long writes when the flag is set; engines turn it into their own
// "cancelled" error at their next poll.
class InterruptedError : public Error {
  public:
    InterruptedError() : Error("Interrupted.") {}
};

// Installs the handlers for SIGINT, SIGTERM and SIGHUP (idempotent). A second
// signal of the same kind while the first is being honoured is ignored, so a
// repeated Ctrl-C cannot cut the cleanup short.
void installInterruptHandlers();

// The number of the first signal received, 0 when none.
int interruptSignal() noexcept;
inline bool interruptRequested() noexcept {
    return interruptSignal() != 0;
}

// Sets the flag as a signal would (tests, and faces that cancel on their own).
void requestInterrupt(int signal) noexcept;
void clearInterrupt() noexcept;

}  // namespace norvane
