// Every kernel that this processor can run against every library that has the cipher, in one run: 512-byte
// sectors, 64 to a run, one core. The machine may be busy with other things, which only ever slows a
// measurement down; so each contender is measured many times, in turn with the others, and the fast end of
// its results counts: ratios are formed from the 10th percentile of the times and, for comparison, from the
// median.

#include "bench/kernel_peers.h"
#include "platform/disk_codes.h"
#include "quilladriver/sector_cipher.h"
#include "quilladriver/sector_kernel.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <map>
#include <memory>

namespace quilla::bench {
namespace {

constexpr std::size_t kRun = 64;
constexpr int kRepetitions = 60;
constexpr double kSeconds = 0.006;
constexpr const char* kOurs = "Quilla, ";

DataKey FixedDataKey() {
    DataKey key;
    for (std::size_t i = 0; i < key.size(); ++i)
        key[i] = static_cast<std::byte>(11 * i + 5);
    return key;
}

void AddKernels(std::vector<Contender>& contenders) {
    for (const SectorKernel* kernel : AllSectorKernels()) {
        if (!kernel->isSupported()) {
            std::printf("NOT MEASURED: this processor cannot run the kernel %s\n", kernel->name);
            continue;
        }
        const bool isTwofish = kernel->cipher == CipherId::Twofish;
        const auto cipher = std::make_shared<SectorCipher>();
        if (!cipher->SetUp(*kernel, FixedDataKey()))
            std::abort();
        const std::string name = std::string(kOurs) + kernel->name;
        contenders.push_back({isTwofish ? kTwofishEncrypt : kCastEncrypt, name,
                              [=](std::uint64_t first, std::byte* data, std::size_t count) {
                                  cipher->Encrypt(first, std::span(data, count * kSectorSize));
                              }});
        contenders.push_back({isTwofish ? kTwofishDecrypt : kCastDecrypt, name,
                              [=](std::uint64_t first, std::byte* data, std::size_t count) {
                                  cipher->Decrypt(first, std::span(data, count * kSectorSize));
                              }});
    }
}

/// Where a benchmark's results belong in the report: table, row and how many bytes an iteration handles.
struct Place {
    std::string work;
    std::size_t sectors = 0; ///< in a run; 0 for a key set-up
    std::string contender;

    auto operator<=>(const Place&) const = default;
};

/// Gathers the times of all repetitions and prints tables in Markdown.
class RatioReporter : public benchmark::BenchmarkReporter {
  public:
    explicit RatioReporter(const std::map<std::string, Place>& places) : places_(places) {}

    bool ReportContext(const Context& context) override {
        PrintBasicContext(&GetErrorStream(), context);
        return true;
    }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs)
            if (run.run_type == Run::RT_Iteration)
                times_[places_.at(run.run_name.function_name)].push_back(run.cpu_accumulated_time /
                                                                         static_cast<double>(run.iterations));
    }

    void Finalize() override {
        for (const char* work : {kTwofishEncrypt, kTwofishDecrypt, kCastEncrypt, kCastDecrypt})
            PrintPeers(work);
        PrintShortRuns();
        PrintSetUps();
    }

  private:
    using Times = std::vector<double>;

    /// Seconds below which the given part of the times lie.
    static double Quantile(Times times, double part) {
        std::ranges::sort(times);
        return times[static_cast<std::size_t>(part * static_cast<double>(times.size() - 1))];
    }
    static double Speed(std::size_t sectors, double seconds) {
        return static_cast<double>(sectors * kSectorSize) / seconds / 1e6;
    }

    void PrintPeers(const std::string& work) const {
        Times best[2]; // the best time of all peers, at the 10th percentile and the median
        const double parts[2] = {0.1, 0.5};
        for (const auto& [place, times] : times_)
            if (place.work == work && place.sectors == kRun && !place.contender.starts_with(kOurs))
                for (std::size_t i = 0; i < 2; ++i)
                    best[i].push_back(Quantile(times, parts[i]));
        std::printf(
            "\n| %s, runs of %zu sectors | MB/s (10th percentile) | ratio to the best peer | MB/s (median) | "
            "ratio |\n|---|---|---|---|---|\n",
            work.c_str(), kRun);
        for (const auto& [place, times] : times_) {
            if (place.work != work || place.sectors != kRun)
                continue;
            std::printf("| %s", place.contender.c_str());
            for (std::size_t i = 0; i < 2; ++i) {
                const double time = Quantile(times, parts[i]);
                std::printf(" | %.0f | %.2f", Speed(kRun, time), *std::ranges::min_element(best[i]) / time);
            }
            std::printf(" |\n");
        }
    }

    void PrintShortRuns() const {
        std::printf("\n| short runs, MB/s (10th percentile) | sectors | |\n|---|---|---|\n");
        for (const auto& [place, times] : times_)
            if (place.sectors != 0 && place.sectors != kRun)
                std::printf("| %s, %s | %zu | %.0f |\n", place.work.c_str(), place.contender.c_str(),
                            place.sectors, Speed(place.sectors, Quantile(times, 0.1)));
    }

    void PrintSetUps() const {
        std::printf("\n| key set-up, microseconds | 10th percentile | median |\n|---|---|---|\n");
        for (const auto& [place, times] : times_)
            if (place.sectors == 0)
                std::printf("| %s | %.1f | %.1f |\n", place.contender.c_str(), Quantile(times, 0.1) * 1e6,
                            Quantile(times, 0.5) * 1e6);
    }

    const std::map<std::string, Place>& places_;
    std::map<Place, Times> times_;
};

class Registry {
  public:
    template <typename Body>
    void Add(const Place& place, Body body) {
        std::string name = place.work + "/" + std::to_string(place.sectors) + "/" + place.contender;
        places_[name] = place;
        benchmark::RegisterBenchmark(name.c_str(), body)->MinTime(kSeconds)->Repetitions(kRepetitions);
    }
    [[nodiscard]] const std::map<std::string, Place>& Places() const { return places_; }

  private:
    std::map<std::string, Place> places_;
};

void AddRun(Registry& registry, const Contender& contender, std::size_t sectors) {
    registry.Add({contender.work, sectors, contender.name},
                 [run = contender.run, sectors,
                  data = std::vector<std::byte>(sectors * kSectorSize)](benchmark::State& state) mutable {
                     std::uint64_t first = 0;
                     for (auto unused : state) {
                         static_cast<void>(unused);
                         run(first, data.data(), sectors);
                         first += sectors;
                     }
                 });
}

void AddSetUp(Registry& registry, const SectorKernel* kernel) {
    const char* const name = kernel->cipher == CipherId::Twofish ? "Twofish, " : "CAST-128, ";
    registry.Add({"key set-up", 0, name + std::string(kernel->name)}, [kernel](benchmark::State& state) {
        for (auto unused : state) {
            static_cast<void>(unused);
            SectorCipher cipher;
            benchmark::DoNotOptimize(cipher.SetUp(*kernel, FixedDataKey()));
        }
    });
}

int Measure(int argumentCount, char** arguments) {
    benchmark::Initialize(&argumentCount, arguments);
    std::vector<Contender> contenders;
    AddKernels(contenders);
    const std::size_t ours = contenders.size();
    std::ranges::move(PeerContenders(), std::back_inserter(contenders));
    Registry registry;
    for (std::size_t i = 0; i < contenders.size(); ++i) {
        AddRun(registry, contenders[i], kRun);
        if (i < ours)
            for (const std::size_t sectors : {1U, 8U})
                AddRun(registry, contenders[i], sectors);
    }
    for (const SectorKernel* kernel : AllSectorKernels())
        if (kernel->isSupported())
            AddSetUp(registry, kernel);
    RatioReporter reporter(registry.Places());
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return 0;
}

} // namespace
} // namespace quilla::bench

int main(int argumentCount, char** arguments) {
    return quilla::bench::Measure(argumentCount, arguments);
}
