// The process behind a mounted volume: it alone holds the keys. Its main thread waits for signals, for other
// quilla commands and for the end of the mount; the threads of the FUSE server do the work.

#include "linux/service.h"

#include "linux/control.h"
#include "linux/drive.h"
#include "linux/hardening.h"
#include "platform/clock.h"
#include "platform/locked_memory.h"
#include "platform/wipe.h"
#include "quilladriver/volume_device.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace quilla {

namespace {

/// Between two looks at the time-out; the slack of a time-out is made for it.
constexpr int kSweepMilliseconds = 15'000;
constexpr std::uint64_t kUnitsPerSecond = 10'000'000;
/// Since Linux 5.6: writing back memory must not wait for this process to get memory.
constexpr int kSetIoFlusher = 57;

/// A data key in locked memory of this very process.
class LockedKey {
  public:
    LockedKey() : key_(static_cast<DataKey*>(AllocateLockedMemory(sizeof(DataKey)))) {}
    ~LockedKey() { Wipe(); }
    LockedKey(const LockedKey&) = delete;
    LockedKey& operator=(const LockedKey&) = delete;
    [[nodiscard]] DataKey* Get() const { return key_; }
    void Wipe() { ReleaseLockedMemory(std::exchange(key_, nullptr), sizeof(DataKey)); }

  private:
    DataKey* key_;
};

class Service {
  public:
    /// Commands that wait for the end of this process are handed to `waiting`.
    Service(ServiceOrder& order, std::vector<Descriptor>& waiting)
        : order_(order), waiting_(waiting), device_(LocalFileTime) {}

    [[nodiscard]] ExitCode Start(LockedKey& key);
    /// Serves until the drive has gone.
    [[nodiscard]] ExitCode Run();
    [[nodiscard]] MountState State() const;

  private:
    void TakeControl();
    void TakeSignal();
    void Sweep();

    ServiceOrder& order_;
    std::vector<Descriptor>& waiting_;
    VolumeDevice device_;
    std::unique_ptr<Drive> drive_;
    Descriptor signals_;
    Descriptor control_;
    Descriptor ended_;
};

/// Signals that end a service are taken from a descriptor; a client that hangs up must not end it.
Descriptor TakeSignals() {
    sigset_t ends;
    sigemptyset(&ends);
    for (const int one : {SIGTERM, SIGINT, SIGHUP})
        sigaddset(&ends, one);
    sigprocmask(SIG_BLOCK, &ends, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    return Descriptor(signalfd(-1, &ends, SFD_CLOEXEC));
}

ExitCode Service::Start(LockedKey& key) {
    LockProcessMemory();
    static_cast<void>(prctl(kSetIoFlusher, 1, 0, 0, 0));
    signals_ = TakeSignals();
    ended_ = Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    const bool isOpen = device_.Open(std::move(order_.file), order_.volume.settings.Cipher, *key.Get());
    key.Wipe();
    if (!isOpen)
        return Fail(ExitCode::BadFile, "%s cannot be served: it is empty, or its cipher is unknown",
                    order_.volume.path.c_str());
    control_ = ListenForControl(order_.volume.id);
    if (!control_.IsOpen() || !signals_.IsOpen() || !ended_.IsOpen())
        return Fail(ExitCode::SystemLacks, "cannot set up the service: %s", std::strerror(errno));
    drive_ = MakeDrive(order_, device_);
    if (!drive_)
        return Fail(ExitCode::SystemLacks, "there is no memory");
    const ExitCode code = drive_->Mount(ended_.Get());
    if (code == ExitCode::Done)
        NoteState(order_.volume.id, State());
    return code;
}

ExitCode Service::Run() {
    for (;;) {
        std::array<pollfd, 3> events = {{{.fd = ended_.Get(), .events = POLLIN, .revents = 0},
                                         {.fd = control_.Get(), .events = POLLIN, .revents = 0},
                                         {.fd = signals_.Get(), .events = POLLIN, .revents = 0}}};
        if (poll(events.data(), events.size(), kSweepMilliseconds) < 0 && errno != EINTR)
            break;
        if (events[0].revents != 0)
            break;
        if (events[1].revents != 0)
            TakeControl();
        if (events[2].revents != 0)
            TakeSignal();
        Sweep();
    }
    drive_->Abandon();
    const bool isFlushed = order_.volume.isReadOnly || device_.Flush();
    device_.Close();
    if (!isFlushed)
        return Fail(ExitCode::BadFile, "%s could not be written to the end: data may be lost",
                    order_.volume.path.c_str());
    return ExitCode::Done;
}

void Service::TakeControl() {
    Descriptor connection(accept4(control_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!connection.IsOpen())
        return;
    const timeval limit{.tv_sec = 1, .tv_usec = 0};
    setsockopt(connection.Get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    const std::string question = ReceiveMessage(connection.Get());
    if (question == kAskState) {
        SendMessage(connection.Get(), Pack(State()));
    } else if (question == kAskDismount) {
        const int error = drive_->Dismount();
        SendMessage(connection.Get(), error == 0       ? kAnswerDone
                                      : error == EBUSY ? kAnswerBusy
                                                       : std::strerror(error));
        if (error == 0)
            waiting_.push_back(std::move(connection));
    }
}

/// The system or the user wants this process to end: what is in use is taken away as soon as it is not.
void Service::TakeSignal() {
    signalfd_siginfo info{};
    static_cast<void>(read(signals_.Get(), &info, sizeof(info)) < 0);
    if (drive_->Dismount() == EBUSY)
        drive_->Detach();
}

void Service::Sweep() {
    // A file system in use is not taken away; the next sweep tries again.
    if (IsTimeoutOver(order_.volume.settings.Timeout, device_.LastActivity(), LocalFileTime()))
        drive_->Expire();
}

MountState Service::State() const {
    const std::uint64_t now = LocalFileTime();
    const std::uint64_t last = device_.LastActivity();
    MountState state;
    state.volume = order_.volume.path;
    state.key = order_.volume.keyPath;
    state.folder = order_.folder;
    state.cipher = CipherName(order_.volume.settings.Cipher);
    state.size = order_.volume.size;
    state.timeoutSeconds = order_.volume.settings.Timeout / kUnitsPerSecond;
    state.idleSeconds = now > last ? (now - last) / kUnitsPerSecond : 0;
    state.process = getpid();
    state.isReadOnly = order_.volume.isReadOnly;
    drive_->Describe(state);
    return state;
}

/// A line to the starting command: the exit code as its first byte, then the place.
void Report(int to, ExitCode code, const std::string& place) {
    const std::string line = static_cast<char>(code) + place;
    static_cast<void>(!write(to, line.data(), line.size()));
}

/// The service holds neither the terminal nor any folder.
void LeaveTerminal() {
    const Descriptor nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        dup2(nothing.Get(), standard);
}

/// `report` is where the start is told, or -1.
ExitCode Serve(ServiceOrder& order, LockedKey& key, int report, std::string& place) {
    static_cast<void>(!chdir("/"));
    ExitCode code = ExitCode::Done;
    std::vector<Descriptor> waiting; // closed last
    {
        Service service(order, waiting);
        code = service.Start(key);
        if (code == ExitCode::Done) {
            place = service.State().place;
            if (report >= 0) {
                Report(report, code, place);
                close(report);
                LeaveTerminal();
            } else {
                std::printf("%s\n", place.c_str());
                std::fflush(stdout);
            }
            code = service.Run();
            report = -1;
        }
    }
    if (code != ExitCode::Done)
        for (const Descriptor& connection : waiting)
            SendMessage(connection.Get(), kToldLoss);
    RemoveTraces(order.volume.id);
    if (order.isFolderOurs)
        rmdir(order.folder.c_str());
    if (report >= 0)
        Report(report, code, {});
    return code;
}

ExitCode AwaitReport(int from, std::string& place) {
    std::array<char, 4200> line{};
    ssize_t count = 0;
    do
        count = read(from, line.data(), line.size());
    while (count < 0 && errno == EINTR);
    if (count <= 0)
        return Fail(ExitCode::SystemLacks, "the service has ended unexpectedly");
    place.assign(line.data() + 1, static_cast<std::size_t>(count) - 1);
    return ExitCode{line[0]};
}

} // namespace

ExitCode StartService(ServiceOrder& order, KeyBlock& block, std::string& place) {
    LockedKey key;
    if (key.Get() == nullptr)
        return Fail(ExitCode::SystemLacks, "there is no memory");
    TakeDataKey(*key.Get(), block);
    Wipe(block);
    if (order.isForeground)
        return Serve(order, key, -1, place);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return Fail(ExitCode::SystemLacks, "cannot make a pipe: %s", std::strerror(errno));
    const Descriptor reading(ends[0]);
    Descriptor writing(ends[1]);
    const pid_t process = fork();
    if (process == 0) {
        setsid();
        static_cast<void>(mlock(key.Get(), sizeof(DataKey)));
        _exit(static_cast<int>(Serve(order, key, writing.Release(), place)));
    }
    writing.Close();
    if (process < 0)
        return Fail(ExitCode::SystemLacks, "cannot start the service: %s", std::strerror(errno));
    order.file.Close(); // the service has it
    return AwaitReport(reading.Get(), place);
}

} // namespace quilla
