#pragma once

#include "export/range_lock.h"
#include "platform/block_device.h"
#include "platform/thread.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <linux/fuse.h>
#include <memory>
#include <string_view>

namespace quilla::fuse {

/// How the one file is served.
struct Settings {
    /// The file's name in the root folder; at most 255 bytes.
    std::string_view name;
    std::uint32_t user = 0; ///< who owns folder and file
    std::uint32_t group = 0;
    bool readOnly = false;
    /// Reads and writes go through the kernel's page cache, which is what helpers that read little by little
    /// need; without it every request of a client is one request here, which is what a loop device needs.
    bool cached = false;
};

/// Serves one block device as one file in a folder of its own, over the kernel's FUSE protocol on an open
/// /dev/fuse that has been mounted. Everything a request needs is allocated and touched beforehand, since the
/// kernel may want memory back by writing to this very file.
class Server {
  public:
    /// A thread waits in the kernel while the other works; more gain nothing.
    static constexpr std::size_t kThreads = 2;
    /// Bytes of the biggest read or write.
    static constexpr std::uint32_t kMaxTransfer = 128U << 10;

    /// The device and the name must outlive the server.
    Server(BlockDevice& device, const Settings& settings);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Starts the threads on a mounted descriptor; false if the system refuses. When the mount ends, since it
    /// was unmounted and nobody uses it any more or since it was aborted, `ended` (an eventfd) is signalled.
    /// Both stay the caller's.
    [[nodiscard]] bool Start(int descriptor, int ended);

    /// Joins the threads. The mount must have ended, or be ended by another process soon.
    void Join();

  private:
    struct Buffer;
    class Reply;
    class DeviceReply;
    class Rings;
    using Handler = void (Server::*)(Reply& reply);
    struct Operation;
    static const Operation kOperations[];
    struct Worker {
        Server* server = nullptr;
        std::unique_ptr<Buffer> buffer;
        Thread thread;
    };

    static void RunWorker(void* worker);
    void Serve(Buffer& buffer);
    void SignalEnd() const;
    void Answer(Reply& reply);

    void Initialize(Reply& reply);
    void LookUp(Reply& reply);
    void GetAttributes(Reply& reply);
    void SetAttributes(Reply& reply);
    void OpenNode(Reply& reply);
    void ReadFile(Reply& reply);
    void WriteFile(Reply& reply);
    void Flush(Reply& reply);
    void Succeed(Reply& reply);
    void ReadFolder(Reply& reply);
    void DescribeSystem(Reply& reply);
    void StaySilent(Reply& reply);

    [[nodiscard]] bool Describe(std::uint64_t node, fuse_attr& attributes) const;

    BlockDevice& device_;
    RangeLock ranges_;
    const Settings settings_;
    int descriptor_ = -1;
    int ended_ = -1;
    std::array<Worker, kThreads> workers_;
    std::unique_ptr<Rings> rings_;
};

} // namespace quilla::fuse
