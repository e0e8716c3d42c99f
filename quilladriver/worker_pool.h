#pragma once

#include "platform/thread.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace quilla {

/// A few threads that help with big jobs. They are started by the first job, one for each processor beyond
/// the caller's, and wait for the next one until Stop.
class WorkerPool {
  public:
    /// One step of a job, told by its number; false if it failed.
    using Step = bool (*)(void* context, std::size_t index);

    WorkerPool() = default;
    ~WorkerPool() { Stop(); }
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    /// Carries out the steps 0 to count - 1, begun in this order, on this thread and on workers that have
    /// nothing else to do; true if all succeeded. After a failure no further step is begun. Several threads
    /// may call: the first gets the workers, since the others keep the processors busy by themselves.
    [[nodiscard]] bool Run(std::size_t count, Step step, void* context);

    /// The same for something that can be called with the number of a step.
    template <typename Work>
    [[nodiscard]] bool ForEach(std::size_t count, Work work) {
        const auto step = [](void* context, std::size_t index) {
            return (*static_cast<Work*>(context))(index);
        };
        return Run(count, step, &work);
    }

    /// Ends the workers. No job may be running; a later one starts them again.
    void Stop();

  private:
    /// More would wait for the file, not for a processor.
    static constexpr std::size_t kMaxWorkers = 3;

    struct Job {
        Job(std::size_t steps, Step what, void* with) : count(steps), step(what), context(with) {}

        /// Takes steps until none is left.
        void Work();

        const std::size_t count;
        const Step step;
        void* const context;
        std::atomic<std::size_t> next{0};
        std::atomic<bool> failed{false};
    };

    static constexpr std::uint32_t kCrowdedJobs = 32;

    static void RunWorker(void* pool);
    void Help();
    [[nodiscard]] bool IsCrowded();
    void Offer(Job& job);
    void Withdraw();
    void StartWorkers();

    std::atomic<std::uint32_t> callers_{0};
    std::atomic<std::uint32_t> crowdedJobs_{0}; ///< still to be done without help
    Lock lock_;                                 ///< protects what follows
    Condition offered_;
    Condition helped_;
    Job* job_ = nullptr;       ///< for workers to join
    std::uint64_t number_ = 0; ///< of the latest job
    std::size_t helping_ = 0;  ///< workers inside a job
    std::size_t workerCount_ = 0;
    bool hasStarted_ = false;
    bool isStopping_ = false;
    std::array<Thread, kMaxWorkers> workers_;
};

} // namespace quilla
