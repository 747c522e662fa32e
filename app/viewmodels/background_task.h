#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <stop_token>
#include <thread>
#include <vector>

#include <QObject>
#include <QTimer>

namespace norvane {

// One kind of long work of a view model (a split, a stamp run, a cut analysis,
// a rebuild step), run on its own thread, at most one current run at a time.
//
// The worker never touches published state: it posts closures that run on the
// main thread, in order. Everything that crosses threads goes through one
// std::mutex-guarded queue which the owner's thread drains on a short timer;
// this keeps the hand-over visible to ThreadSanitizer, unlike a hop through the
// Qt event queue, whose lock it cannot see.
class BackgroundTask {
  public:
    // What a running worker may do.
    class Context {
      public:
        // True once the run was cancelled or superseded by a newer one.
        bool stopRequested() const { return stop_.stop_requested(); }
        // Queues `action` for the main thread. Actions of a superseded run are
        // dropped there; those of a cancelled (but current) run still run.
        void post(std::function<void()> action) const;

      private:
        friend class BackgroundTask;
        Context(BackgroundTask* task, std::uint64_t generation, std::stop_token stop)
            : task_(task), generation_(generation), stop_(std::move(stop)) {}
        BackgroundTask* task_;
        std::uint64_t generation_;
        std::stop_token stop_;
    };

    // `owner` lives on the main thread; the drain timer is its child.
    explicit BackgroundTask(QObject* owner);
    // Cancels every run and waits for the threads to end.
    ~BackgroundTask();
    BackgroundTask(const BackgroundTask&) = delete;
    BackgroundTask& operator=(const BackgroundTask&) = delete;

    // Starts `work` on a new thread. A run still going is asked to stop and its
    // posts are dropped from now on. Main thread only.
    void start(std::function<void(const Context&)> work);
    // Asks the current run to stop; its posts still arrive. Main thread only.
    void cancel();
    // Asks the current run to stop and drops whatever it still posts (the
    // state it would update was reset). Main thread only.
    void discard();
    // A run was started and its thread has not yet delivered everything.
    bool isRunning() const { return running_; }

    // Runs the queued actions now (the timer does this every few milliseconds).
    void drain();

  private:
    struct Posted {
        std::uint64_t generation;
        std::function<void()> action;
    };
    struct Worker {
        std::jthread thread;
        std::shared_ptr<std::atomic<bool>> finished;
    };

    void enqueue(std::uint64_t generation, std::function<void()> action);
    void reapFinishedWorkers();

    QTimer* timer_;
    std::mutex mutex_;
    std::deque<Posted> queue_;              // guarded by mutex_
    std::uint64_t finishedGeneration_ = 0;  // guarded by mutex_: last run whose work ended
    std::uint64_t generation_ = 0;          // main thread
    bool running_ = false;                  // main thread
    std::vector<Worker> workers_;           // main thread
};

}  // namespace norvane
