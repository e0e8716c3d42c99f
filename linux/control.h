#pragma once

#include "linux/descriptor.h"

#include <cstdint>
#include <string>
#include <vector>

namespace quilla {

/// How a service does that is asked for something.
enum class ServiceLife : std::uint8_t {
    Answers,
    Hangs,
    Dead,
};

/// What a service tells of its volume.
struct MountState {
    std::string volume;
    std::string key;
    std::string place;  ///< the folder of the file system, the plain file, or the export's URI
    std::string folder; ///< what is mounted for the user, and nothing else is ever unmounted
    std::string device; ///< the loop device, if there is one
    std::string cipher;
    std::uint64_t size = 0;
    std::uint64_t timeoutSeconds = 0;
    std::uint64_t idleSeconds = 0;
    int process = 0;
    std::uint64_t folderDevice = 0; ///< of what is mounted on the folder
    unsigned connection = 0;        ///< the number of the mount's FUSE connection
    std::vector<int> clients;       ///< processes that the service knows of itself
    bool isReadOnly = false;
    ServiceLife service = ServiceLife::Dead;
};

/// One line per field, "name=value", for the way over the socket.
[[nodiscard]] std::string Pack(const MountState& state);
[[nodiscard]] MountState Unpack(const std::string& text);

/// The service's end: a socket in the runtime folder. Replaces one that a dead service left. Not open if the
/// system refuses.
[[nodiscard]] Descriptor ListenForControl(const std::string& id);

/// Connects to the service of a volume; not open where none serves, with errno EAGAIN where one does not take
/// connections any more.
[[nodiscard]] Descriptor ConnectControl(const std::string& id);

/// Messages are small and come whole. An empty answer: the other end is gone, or has not answered in time.
bool SendMessage(int descriptor, const std::string& text);
[[nodiscard]] std::string ReceiveMessage(int descriptor);

/// Asks a service for its state; if it does not answer, only how it does is filled in, and false returned.
[[nodiscard]] bool AskState(const std::string& id, MountState& state);

/// What the service wrote down when it had mounted the volume, for when it does not answer any more.
void NoteState(const std::string& id, const MountState& state);
[[nodiscard]] MountState NotedState(const std::string& id);

/// Whether what is mounted on the folder is what the service has mounted, or a mount whose service is dead.
[[nodiscard]] bool IsStillMounted(const MountState& state);

/// Removes all that a service left in the runtime folder.
void RemoveTraces(const std::string& id);

/// The states of all services of this user. One that does not answer, or is dead and has left its mount, has
/// what it wrote down.
[[nodiscard]] std::vector<MountState> AllMounted();

inline constexpr char kAskState[] = "state";
inline constexpr char kAskDismount[] = "dismount";
inline constexpr char kAnswerDone[] = "done";
/// Follows kAnswerDone at the end of a service that could not write everything.
inline constexpr char kToldLoss[] = "loss";
inline constexpr char kAnswerBusy[] = "busy";

} // namespace quilla
