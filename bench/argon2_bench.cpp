// Argon2id against libargon2 in one run, with the default cost: on one thread and on one thread per lane. A
// slower function here would give an attacker, who uses the fastest, an advantage.
//
//   quilla-argon2-bench [ROUNDS]

#include "volume/argon2.h"
#include "volume/argon2_block.h"
#include "volume/sha1.h"

#include <algorithm>
#include <argon2.h>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

namespace quilla {
namespace {

constexpr std::array<std::byte, kPasswordKeySize> kPassword{};
constexpr std::array<std::byte, 32> kSalt{};

double SecondsOf(const std::function<void()>& work) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

void RunPeer(const Argon2Cost& cost) {
    PasswordDigest tag;
    if (argon2id_hash_raw(cost.passes, cost.memory, cost.lanes, kPassword.data(), kPassword.size(),
                          kSalt.data(), kSalt.size(), tag.data(), tag.size()) != ARGON2_OK)
        std::abort();
}

void RunOurs(const Argon2Cost& cost, const Argon2Kernel* kernel) {
    PasswordDigest tag;
    if (Argon2id(tag, {.password = kPassword, .salt = kSalt}, cost, nullptr, kernel) != Argon2Result::Done)
        std::abort();
}

struct Contender {
    std::string name;
    std::function<void(const Argon2Cost&)> run;
    std::vector<double> times;
};

/// Contenders take turns, so that other load on the machine hits all alike.
double MeasureLanes(std::uint32_t lanes, int rounds) {
    const Argon2Cost cost = {
        .memory = kDefaultArgon2Cost.memory, .passes = kDefaultArgon2Cost.passes, .lanes = lanes};
    std::vector<Contender> contenders = {{"libargon2", RunPeer, {}}};
    for (const Argon2Kernel* kernel : AllArgon2Kernels())
        if (kernel->isSupported())
            contenders.push_back({std::string("Quilla Tarn, ") + kernel->name,
                                  [kernel](const Argon2Cost& c) { RunOurs(c, kernel); },
                                  {}});
    for (int round = 0; round < rounds; ++round)
        for (Contender& contender : contenders)
            contender.times.push_back(SecondsOf([&] { contender.run(cost); }));
    std::printf("\n| Argon2id, 64 MiB, 3 passes, %u lane%s | ms (fastest) | speed against libargon2 | ms "
                "(median) | speed |\n|---|---|---|---|---|\n",
                lanes, lanes == 1 ? "" : "s");
    for (Contender& contender : contenders)
        std::ranges::sort(contender.times);
    const auto middle = static_cast<std::size_t>(rounds / 2);
    for (const Contender& contender : contenders)
        std::printf("| %s | %.1f | %.2f | %.1f | %.2f |\n", contender.name.c_str(), contender.times[0] * 1e3,
                    contenders[0].times[0] / contender.times[0], contender.times[middle] * 1e3,
                    contenders[0].times[middle] / contender.times[middle]);
    return contenders[1].times[middle];
}

/// Guesses of a password a second on one processor of this machine.
void CompareGuesses(double secondsOfArgon2) {
    constexpr int kGuesses = 2'000'000;
    PasswordDigest key{};
    const double seconds = SecondsOf([&] {
        for (int i = 0; i < kGuesses; ++i)
            PasswordKey(key, std::span<const std::byte>(key));
    });
    const double plain = kGuesses / seconds;
    std::printf("\nGuesses a second on one processor: SHA-1 %.0f, Argon2id %.1f; ratio %.0f.\n", plain,
                1 / secondsOfArgon2, plain * secondsOfArgon2);
}

} // namespace
} // namespace quilla

int main(int count, char** arguments) {
    const int rounds = count > 1 ? std::max(1, static_cast<int>(std::strtol(arguments[1], nullptr, 10))) : 15;
    quilla::CompareGuesses(quilla::MeasureLanes(1, rounds));
    static_cast<void>(quilla::MeasureLanes(quilla::kDefaultArgon2Cost.lanes, rounds));
    return 0;
}
