// quilla-nbd-server: the volume driver's core and the exports, NBD and iSCSI, as a native program. It serves
// one data file until it is interrupted. Measurements and tests with real clients run against it, sanitizers
// included.

#include "export/export_name.h"
#include "export/iscsi/target.h"
#include "export/nbd/server.h"
#include "platform/clock.h"
#include "platform/wipe.h"
#include "quilladriver/sector_cipher.h"
#include "quilladriver/sector_kernel.h"
#include "quilladriver/volume_device.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

namespace quilla {
namespace {

constexpr char kUsage[] =
    "usage: quilla-nbd-server FILE CIPHER KEY [PORT]\n"
    "  FILE    data file of a volume\n"
    "  CIPHER  0 = none, 6 = CAST-128, 10 = Twofish; 10:AVX2 = by the kernel so named\n"
    "  KEY     data key, 64 hexadecimal digits, or @PATH of a file that holds them\n"
    "  PORT    port on 127.0.0.1; chosen by the system if absent\n"
    "Prints the URIs for clients, NBD and then iSCSI, serves until SIGINT or SIGTERM.\n";

constexpr std::size_t kKeyDigits = 2 * kDataKeySize;
using KeyText = std::array<char, kKeyDigits>;

int DigitValue(char digit) {
    constexpr char kDigits[] = "0123456789abcdef";
    const char* const found = digit == '\0' ? nullptr : std::strchr(kDigits, digit | 0x20);
    return found == nullptr ? -1 : static_cast<int>(found - kDigits);
}

bool ReadKeyText(const char* argument, KeyText& text) {
    if (argument[0] != '@') {
        if (std::strlen(argument) != text.size())
            return false;
        std::memcpy(text.data(), argument, text.size());
        return true;
    }
    const File file =
        File::Open(argument + 1, FileAccess::Read, FileSharing::Read, FileCreation::OpenExisting);
    return file.IsOpen() && file.ReadAt(0, std::as_writable_bytes(std::span(text))).bytes == text.size();
}

bool ParseKey(const char* argument, DataKey& key) {
    Secret<KeyText> text;
    if (!ReadKeyText(argument, *text))
        return false;
    for (std::size_t i = 0; i < key.size(); ++i) {
        const int high = DigitValue((*text)[2 * i]);
        const int low = DigitValue((*text)[2 * i + 1]);
        if (high < 0 || low < 0)
            return false;
        key[i] = static_cast<std::byte>(high << 4 | low);
    }
    return true;
}

/// Sets the cipher up that a number names, with the best kernel or with the one whose name begins as told.
bool SetUpCipher(SectorCipher& cipher, const char* argument, const DataKey& key) {
    char* end = nullptr;
    const auto id = static_cast<CipherId>(std::strtoul(argument, &end, 10));
    if (*end == '\0')
        return cipher.SetUp(id, key);
    const std::string_view wanted(end + 1);
    for (const SectorKernel* kernel : AllSectorKernels())
        if (kernel->cipher == id && std::string_view(kernel->name).starts_with(wanted) &&
            kernel->isSupported())
            return cipher.SetUp(*kernel, key);
    return false;
}

int Fail(const char* what) {
    std::fprintf(stderr, "quilla-nbd-server: %s\n", what);
    return EXIT_FAILURE;
}

int Serve(VolumeDevice& device, std::uint16_t port) {
    ExportName name{};
    if (!MakeExportName(0, name))
        return Fail("no random numbers");
    // Blocked in all threads, so that only the wait below takes them.
    sigset_t ends{};
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    RangeLock ranges;
    nbd::Server server(device, ranges, name.data());
    if (!server.Start(port))
        return Fail("cannot listen");
    Secret<iscsi::TargetKeys> keys;
    if (!iscsi::MakeTargetKeys(0, *keys))
        return Fail("no random numbers");
    iscsi::Target target(device, ranges, *keys, "SEC0");
    if (!target.Start())
        return Fail("cannot listen");
    std::printf("nbd://127.0.0.1:%u/%s\n", unsigned{server.Port()}, name.data());
    std::printf("iscsi://%s%%%s@127.0.0.1:%u/%s/0\n", iscsi::kTargetUser, keys->secret.data(),
                unsigned{target.Port()}, keys->name.data());
    std::fflush(stdout);
    int signal = 0;
    sigwait(&ends, &signal);
    const StopReport targetReport = target.Stop();
    const StopReport report = server.Stop();
    const unsigned cutOff = report.clientsCutOff + targetReport.clientsCutOff;
    if (cutOff > 0)
        std::fprintf(stderr, "quilla-nbd-server: %u connections cut off\n", cutOff);
    return report.flushed && targetReport.flushed ? EXIT_SUCCESS : Fail("cannot flush");
}

int Run(int count, char** arguments) {
    if (count < 4 || count > 5) {
        std::fputs(kUsage, stderr);
        return EXIT_FAILURE;
    }
    Secret<DataKey> key;
    if (!ParseKey(arguments[3], *key))
        return Fail("the key is not 64 hexadecimal digits");
    File file =
        File::Open(arguments[1], FileAccess::ReadWrite, FileSharing::None, FileCreation::OpenExisting);
    SectorCipher cipher;
    if (!SetUpCipher(cipher, arguments[2], *key))
        return Fail("no such cipher");
    VolumeDevice device(LocalFileTime);
    if (!device.Open(std::move(file), std::move(cipher)))
        return Fail("cannot open the volume");
    key.WipeNow();
    const unsigned long port = count == 5 ? std::strtoul(arguments[4], nullptr, 10) : 0;
    return Serve(device, static_cast<std::uint16_t>(port));
}

} // namespace
} // namespace quilla

int main(int count, char** arguments) {
    return quilla::Run(count, arguments);
}
