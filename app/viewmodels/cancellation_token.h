#pragma once

#include <mutex>

namespace norvane {

// The cancel flag shared between the controller (main thread) and the engine
// running a long task (a background thread), which polls it before each job,
// file, channel or scan window. The flag is only read and written under its lock.
class CancellationToken {
  public:
    void reset() {
        std::lock_guard lock(mutex_);
        cancelled_ = false;
    }
    void cancel() {
        std::lock_guard lock(mutex_);
        cancelled_ = true;
    }
    bool isCancelled() const {
        std::lock_guard lock(mutex_);
        return cancelled_;
    }

  private:
    mutable std::mutex mutex_;
    bool cancelled_ = false;
};

}  // namespace norvane
