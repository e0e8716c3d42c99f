// Helpers for one caller at a time: a job is offered, worked on by all who come, and withdrawn.

#include "quilladriver/worker_pool.h"

#include <algorithm>

namespace quilla {

void WorkerPool::Job::Work() {
    while (!failed.load(std::memory_order_relaxed)) {
        const std::size_t index = next.fetch_add(1, std::memory_order_relaxed);
        if (index >= count)
            return;
        if (!step(context, index))
            failed.store(true, std::memory_order_relaxed);
    }
}

bool WorkerPool::Run(std::size_t count, Step step, void* context) {
    Job job(count, step, context);
    const bool isAlone = callers_.fetch_add(1) == 0;
    if (!isAlone)
        crowdedJobs_.store(kCrowdedJobs, std::memory_order_relaxed);
    const bool hasHelp = isAlone && count > 1 && !IsCrowded();
    if (hasHelp)
        Offer(job);
    job.Work();
    if (hasHelp)
        Withdraw();
    callers_.fetch_sub(1);
    return !job.failed;
}

/// Callers who have met will meet again: for some jobs after that nobody gets help.
bool WorkerPool::IsCrowded() {
    const std::uint32_t left = crowdedJobs_.load(std::memory_order_relaxed);
    if (left > 0)
        crowdedJobs_.store(left - 1, std::memory_order_relaxed);
    return left > 0;
}

void WorkerPool::Offer(Job& job) {
    const LockGuard guard(lock_);
    StartWorkers();
    job_ = &job;
    ++number_;
    for (std::size_t i = 0; i < std::min(workerCount_, job.count - 1); ++i)
        offered_.WakeOne();
}

/// Waits until no worker is inside the job any more.
void WorkerPool::Withdraw() {
    const LockGuard guard(lock_);
    job_ = nullptr;
    while (helping_ > 0)
        helped_.Wait(lock_);
}

/// A worker that the system refuses is one helper less.
void WorkerPool::StartWorkers() {
    if (hasStarted_)
        return;
    hasStarted_ = true;
    const std::size_t wanted = std::min<std::size_t>(CountProcessors() - 1, kMaxWorkers);
    while (workerCount_ < wanted && workers_[workerCount_].Start(RunWorker, this))
        ++workerCount_;
}

void WorkerPool::RunWorker(void* pool) {
    static_cast<WorkerPool*>(pool)->Help();
}

void WorkerPool::Help() {
    const LockGuard guard(lock_);
    for (std::uint64_t seen = 0; !isStopping_;) {
        if (job_ == nullptr || number_ == seen) {
            offered_.Wait(lock_);
            continue;
        }
        Job& job = *job_;
        seen = number_;
        ++helping_;
        lock_.Release();
        job.Work();
        lock_.Acquire();
        if (--helping_ == 0)
            helped_.WakeOne();
    }
}

void WorkerPool::Stop() {
    {
        const LockGuard guard(lock_);
        isStopping_ = true;
        offered_.WakeAll();
    }
    for (Thread& worker : workers_)
        worker.Join();
    workerCount_ = 0;
    hasStarted_ = isStopping_ = false;
}

} // namespace quilla
