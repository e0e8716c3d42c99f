#include "linux/loop_device.h"

#include "linux/message.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <linux/loop.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace quilla {

namespace {

/// Others may take a free device between the question and its use.
constexpr int kAttempts = 32;

/// Opens a loop device, and makes its node where no daemon does.
Descriptor OpenLoop(int number, bool readOnly, std::string& device) {
    device = "/dev/loop" + std::to_string(number);
    const int flags = (readOnly ? O_RDONLY : O_RDWR) | O_CLOEXEC;
    Descriptor loop(open(device.c_str(), flags));
    if (!loop.IsOpen() && errno == ENOENT) {
        constexpr unsigned kLoopMajor = 7;
        mknod(device.c_str(), S_IFBLK | 0600, makedev(kLoopMajor, static_cast<unsigned>(number)));
        loop = Descriptor(open(device.c_str(), flags));
    }
    return loop;
}

} // namespace

Descriptor AttachLoop(const std::string& file, bool readOnly, std::string& device) {
    const Descriptor backing(open(file.c_str(), (readOnly ? O_RDONLY : O_RDWR) | O_CLOEXEC));
    const Descriptor control(open("/dev/loop-control", O_RDWR | O_CLOEXEC));
    if (!backing.IsOpen() || !control.IsOpen()) {
        Warn("cannot open %s: %s", backing.IsOpen() ? "/dev/loop-control" : file.c_str(),
             std::strerror(errno));
        return {};
    }
    loop_config settings{};
    settings.fd = static_cast<std::uint32_t>(backing.Get());
    settings.info.lo_flags = LO_FLAGS_AUTOCLEAR | LO_FLAGS_DIRECT_IO;
    if (readOnly)
        settings.info.lo_flags |= LO_FLAGS_READ_ONLY;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const int number = ioctl(control.Get(), LOOP_CTL_GET_FREE);
        if (number < 0)
            break;
        Descriptor loop = OpenLoop(number, readOnly, device);
        if (!loop.IsOpen())
            break;
        if (ioctl(loop.Get(), LOOP_CONFIGURE, &settings) == 0)
            return loop;
        if (errno != EBUSY)
            break;
    }
    Warn("cannot set up a loop device: %s", std::strerror(errno));
    return {};
}

} // namespace quilla
