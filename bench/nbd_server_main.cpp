// quilla-nbd-server: the volume driver's core and the exports, NBD and iSCSI, as a native program. It serves
// one data file until it is interrupted. Measurements and tests with real clients run against it, sanitizers
// included.

#include "bench/served_volume.h"
#include "export/export_name.h"
#include "export/iscsi/target.h"
#include "export/nbd/server.h"
#include "platform/clock.h"
#include "platform/wipe.h"
#include "quilladriver/volume_device.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace quilla {
namespace {

constexpr char kUsage[] =
    "usage: quilla-nbd-server FILE CIPHER KEY [PORT [sleep]]\n"
    "  FILE    data file of a volume\n"
    "  CIPHER  0 = none, 6 = CAST-128, 10 = Twofish; 10:AVX2 = by the kernel so named\n"
    "  KEY     data key, 64 hexadecimal digits, or @PATH of a file that holds them\n"
    "  PORT    port on 127.0.0.1; chosen by the system if absent or 0\n"
    "  sleep   wait for clients asleep from the start\n"
    "Prints the URIs for clients, NBD and then iSCSI, serves until SIGINT or SIGTERM.\n";

int Fail(const char* what) {
    std::fprintf(stderr, "quilla-nbd-server: %s\n", what);
    return EXIT_FAILURE;
}

int Serve(VolumeDevice& device, std::uint16_t port, ServerLimits limits) {
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
    nbd::Server server(device, ranges, name.data(), limits);
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
    if (count < 4 || count > 6) {
        std::fputs(kUsage, stderr);
        return EXIT_FAILURE;
    }
    VolumeDevice device(LocalFileTime);
    if (const char* const fault = OpenServedVolume(arguments[1], arguments[2], arguments[3], device))
        return Fail(fault);
    const unsigned long port = count >= 5 ? std::strtoul(arguments[4], nullptr, 10) : 0;
    return Serve(device, static_cast<std::uint16_t>(port),
                 count == 6 ? ServerLimits{.looksBeforeWaiting = false} : ServerLimits{});
}

} // namespace
} // namespace quilla

int main(int count, char** arguments) {
    return quilla::Run(count, arguments);
}
