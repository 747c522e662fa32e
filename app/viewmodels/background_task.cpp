#include "app/viewmodels/background_task.h"

#include <utility>

namespace norvane {

namespace {
constexpr int kDrainIntervalMs = 5;
}

void BackgroundTask::Context::post(std::function<void()> action) const {
    task_->enqueue(generation_, std::move(action));
}

BackgroundTask::BackgroundTask(QObject* owner) : timer_(new QTimer(owner)) {
    timer_->setInterval(kDrainIntervalMs);
    QObject::connect(timer_, &QTimer::timeout, timer_, [this] { drain(); });
}

BackgroundTask::~BackgroundTask() {
    for (auto& worker : workers_) {
        worker.thread.request_stop();
    }
    for (auto& worker : workers_) {
        if (worker.thread.joinable()) {
            worker.thread.join();
        }
    }
    // The timer belongs to the owner, which outlives this object only briefly;
    // make sure it no longer calls back into it.
    QObject::disconnect(timer_, nullptr, nullptr, nullptr);
    timer_->stop();
}

void BackgroundTask::start(std::function<void(const Context&)> work) {
    reapFinishedWorkers();
    if (!workers_.empty()) {
        workers_.back().thread.request_stop();
    }
    const std::uint64_t generation = ++generation_;
    running_ = true;
    auto finished = std::make_shared<std::atomic<bool>>(false);
    Worker worker;
    worker.finished = finished;
    worker.thread =
        std::jthread([this, generation, finished, work = std::move(work)](std::stop_token stop) {
            const Context context(this, generation, std::move(stop));
            work(context);
            {
                std::lock_guard lock(mutex_);
                if (generation > finishedGeneration_) {
                    finishedGeneration_ = generation;
                }
            }
            finished->store(true);
        });
    workers_.push_back(std::move(worker));
    timer_->start();
}

void BackgroundTask::cancel() {
    if (!workers_.empty()) {
        workers_.back().thread.request_stop();
    }
}

void BackgroundTask::discard() {
    cancel();
    ++generation_;
    running_ = false;
    timer_->stop();
}

void BackgroundTask::enqueue(std::uint64_t generation, std::function<void()> action) {
    std::lock_guard lock(mutex_);
    queue_.push_back(Posted{generation, std::move(action)});
}

void BackgroundTask::drain() {
    std::deque<Posted> batch;
    std::uint64_t finishedGeneration = 0;
    {
        std::lock_guard lock(mutex_);
        batch.swap(queue_);
        finishedGeneration = finishedGeneration_;
    }
    for (auto& posted : batch) {
        if (posted.generation == generation_) {
            posted.action();
        }
    }
    // Everything the current run posted has been delivered once its work ended
    // before the queue was taken.
    if (finishedGeneration >= generation_) {
        running_ = false;
        timer_->stop();
        reapFinishedWorkers();
    }
}

void BackgroundTask::reapFinishedWorkers() {
    std::erase_if(workers_, [](Worker& worker) {
        if (!worker.finished->load()) {
            return false;
        }
        worker.thread.join();
        return true;
    });
}

}  // namespace norvane
