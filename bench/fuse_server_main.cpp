// quilla-fuse-server: a volume's plain content as one FUSE file, by a kernel of the caller's choice, as the
// native command serves it. Measurements put a loop device on that file.

#include "bench/served_volume.h"
#include "export/fuse/server.h"
#include "platform/clock.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/eventfd.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace quilla {
namespace {

constexpr char kUsage[] =
    "usage: quilla-fuse-server FILE CIPHER KEY FOLDER\n"
    "Serves the data file FILE as FOLDER/volume until FOLDER is unmounted. CIPHER and KEY are "
    "those of quilla-nbd-server.\n";

int Fail(const char* what) {
    std::fprintf(stderr, "quilla-fuse-server: %s\n", what);
    return EXIT_FAILURE;
}

int Run(int count, char** arguments) {
    if (count != 5)
        return Fail(kUsage);
    VolumeDevice device(LocalFileTime);
    if (const char* const fault = OpenServedVolume(arguments[1], arguments[2], arguments[3], device))
        return Fail(fault);
    const int descriptor = open("/dev/fuse", O_RDWR | O_CLOEXEC);
    const int ended = eventfd(0, EFD_CLOEXEC);
    const std::string options = "fd=" + std::to_string(descriptor) + ",rootmode=40000,user_id=0,group_id=0";
    if (mount("quilla", arguments[4], "fuse.quilla", MS_NODEV | MS_NOSUID, options.c_str()) != 0)
        return Fail("cannot mount");
    constexpr int kSetIoFlusher = 57; // PR_SET_IO_FLUSHER
    static_cast<void>(prctl(kSetIoFlusher, 1, 0, 0, 0));
    fuse::Server server(device, {.name = "volume"});
    if (!server.Start(descriptor, ended))
        return Fail("cannot serve");
    server.Join();
    return device.Flush() ? EXIT_SUCCESS : Fail("cannot flush");
}

} // namespace
} // namespace quilla

int main(int count, char** arguments) {
    return quilla::Run(count, arguments);
}
