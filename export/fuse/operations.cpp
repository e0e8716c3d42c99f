// What the kernel asks of a folder with one file in it, one row per operation. Published source: the header
// linux/fuse.h, which describes every record.

#include "export/byte_device.h"
#include "export/fuse/reply.h"
#include "export/fuse/ring_records.h"
#include "export/fuse/rings.h"
#include "platform/disk_codes.h"

#include <algorithm>
#include <fcntl.h>
#include <iterator>
#include <sys/stat.h>
#include <unistd.h>

namespace quilla::fuse {

namespace {

constexpr std::uint64_t kFileNode = 2;
/// Seconds for which the kernel need not ask again: nothing here changes.
constexpr std::uint64_t kLasting = 86400;
constexpr std::uint32_t kBlockSize = 4096;
/// Requests that the kernel keeps under way; its default of 12 costs a fifth of the speed 16 deep.
constexpr std::uint16_t kMaxBackground = 64;
/// Since protocol 7.38; several writers of one file need not wait for one another.
constexpr std::uint32_t kParallelDirectWrites = 1U << 6;

} // namespace

struct Server::Operation {
    std::uint32_t code;
    Handler handle;
};

// What is not here is answered with ENOSYS, after which the kernel does without.
const Server::Operation Server::kOperations[] = {
    {FUSE_READ, &Server::ReadFile},         {FUSE_WRITE, &Server::WriteFile},
    {FUSE_FSYNC, &Server::Flush},           {FUSE_INIT, &Server::Initialize},
    {FUSE_LOOKUP, &Server::LookUp},         {FUSE_GETATTR, &Server::GetAttributes},
    {FUSE_SETATTR, &Server::SetAttributes}, {FUSE_OPEN, &Server::OpenNode},
    {FUSE_OPENDIR, &Server::OpenNode},      {FUSE_READDIR, &Server::ReadFolder},
    {FUSE_STATFS, &Server::DescribeSystem}, {FUSE_FLUSH, &Server::Succeed},
    {FUSE_RELEASE, &Server::Succeed},       {FUSE_RELEASEDIR, &Server::Succeed},
    {FUSE_FSYNCDIR, &Server::Succeed},      {FUSE_DESTROY, &Server::Succeed},
    {FUSE_FORGET, &Server::StaySilent},     {FUSE_BATCH_FORGET, &Server::StaySilent},
};

void Server::Answer(Reply& reply) {
    const auto* const known = std::ranges::find(kOperations, reply.header.opcode, &Operation::code);
    if (known == std::end(kOperations))
        reply.Fail(ENOSYS);
    else
        (this->*known->handle)(reply);
}

void Server::Initialize(Reply& reply) {
    const auto in = reply.Argument<fuse_init_in>();
    const std::uint32_t wanted = FUSE_ASYNC_READ | FUSE_BIG_WRITES | FUSE_ASYNC_DIO | FUSE_MAX_PAGES |
                                 FUSE_PARALLEL_DIROPS | (settings_.cached ? FUSE_WRITEBACK_CACHE : 0U);
    fuse_init_out out{};
    out.major = FUSE_KERNEL_VERSION;
    out.minor = std::min<std::uint32_t>(in.minor, FUSE_KERNEL_MINOR_VERSION);
    out.max_readahead = in.max_readahead;
    out.flags = in.flags & wanted;
    const bool areRingsOffered = (in.flags & FUSE_INIT_EXT) != 0 && (in.flags2 & kOverIoUring) != 0;
    const bool areRingsReady = areRingsOffered && rings_->Prepare();
    if (areRingsReady) {
        out.flags |= FUSE_INIT_EXT;
        out.flags2 = kOverIoUring;
    }
    out.max_background = kMaxBackground;
    out.congestion_threshold = kMaxBackground * 3 / 4;
    out.max_write = kMaxTransfer;
    out.time_gran = 1;
    out.max_pages = static_cast<std::uint16_t>(kMaxTransfer / sysconf(_SC_PAGESIZE));
    reply.SendRecord(out);
    if (areRingsReady)
        rings_->Begin();
}

bool Server::Describe(std::uint64_t node, fuse_attr& attributes) const {
    if (node != FUSE_ROOT_ID && node != kFileNode)
        return false;
    const bool isFile = node == kFileNode;
    attributes.ino = node;
    attributes.size = isFile ? device_.Size() : 0;
    attributes.blocks = attributes.size / kSectorSize;
    attributes.mode = isFile ? S_IFREG | (settings_.readOnly ? 0400U : 0600U) : S_IFDIR | 0500U;
    attributes.nlink = isFile ? 1 : 2;
    attributes.uid = settings_.user;
    attributes.gid = settings_.group;
    attributes.blksize = kBlockSize;
    return true;
}

void Server::LookUp(Reply& reply) {
    const auto* const name = reinterpret_cast<const char*>(reply.record.data());
    const std::size_t length = strnlen(name, reply.record.size());
    if (reply.Node() != FUSE_ROOT_ID || std::string_view(name, length) != settings_.name)
        return reply.Fail(ENOENT);
    fuse_entry_out out{};
    out.nodeid = kFileNode;
    out.entry_valid = kLasting;
    out.attr_valid = kLasting;
    static_cast<void>(Describe(kFileNode, out.attr));
    reply.SendRecord(out);
}

void Server::GetAttributes(Reply& reply) {
    fuse_attr_out out{};
    out.attr_valid = kLasting;
    if (!Describe(reply.Node(), out.attr))
        return reply.Fail(ENOENT);
    reply.SendRecord(out);
}

/// Times may be set, to no effect; the file has one size, one owner and one mode.
void Server::SetAttributes(Reply& reply) {
    const auto in = reply.Argument<fuse_setattr_in>();
    constexpr std::uint32_t kFixed = FATTR_MODE | FATTR_UID | FATTR_GID;
    if ((in.valid & kFixed) != 0 || ((in.valid & FATTR_SIZE) != 0 && in.size != device_.Size()))
        return reply.Fail(EPERM);
    GetAttributes(reply);
}

void Server::OpenNode(Reply& reply) {
    const auto in = reply.Argument<fuse_open_in>();
    const bool isFile = reply.header.opcode == FUSE_OPEN;
    if (isFile && settings_.readOnly && (in.flags & O_ACCMODE) != O_RDONLY)
        return reply.Fail(EROFS);
    fuse_open_out out{};
    if (isFile)
        out.open_flags = settings_.cached ? FOPEN_KEEP_CACHE : FOPEN_DIRECT_IO | kParallelDirectWrites;
    reply.SendRecord(out);
}

void Server::ReadFile(Reply& reply) {
    const auto in = reply.Argument<fuse_read_in>();
    const std::uint64_t size = device_.Size();
    const std::uint64_t left = in.offset < size ? size - in.offset : 0;
    const std::span bytes =
        reply.payload.first(static_cast<std::size_t>(std::min<std::uint64_t>({left, in.size, kMaxTransfer})));
    if (!ByteDevice(device_, ranges_).Read(in.offset, bytes))
        return reply.Fail(EIO);
    reply.Send(bytes);
}

void Server::WriteFile(Reply& reply) {
    const auto in = reply.Argument<fuse_write_in>();
    const std::uint64_t size = device_.Size();
    if (in.size > reply.payloadSize)
        return reply.Fail(EINVAL);
    if (in.offset > size || in.size > size - in.offset)
        return reply.Fail(ENOSPC);
    if (settings_.readOnly)
        return reply.Fail(EROFS);
    if (!ByteDevice(device_, ranges_).Write(in.offset, reply.payload.first(in.size)))
        return reply.Fail(EIO);
    reply.SendRecord(fuse_write_out{.size = in.size, .padding = 0});
}

void Server::Flush(Reply& reply) {
    if (!device_.Flush())
        return reply.Fail(EIO);
    reply.Succeed();
}

void Server::Succeed(Reply& reply) {
    reply.Succeed();
}

void Server::StaySilent(Reply& reply) {
    reply.StaySilent(); // these have no answer
}

void Server::ReadFolder(Reply& reply) {
    const auto in = reply.Argument<fuse_read_in>();
    struct Entry {
        std::uint64_t node;
        std::uint32_t type;
        std::string_view name;
    };
    const Entry entries[] = {{FUSE_ROOT_ID, S_IFDIR >> 12, "."},
                             {FUSE_ROOT_ID, S_IFDIR >> 12, ".."},
                             {kFileNode, S_IFREG >> 12, settings_.name}};
    const std::span room = reply.payload.first(std::min(in.size, kMaxTransfer));
    std::size_t used = 0;
    for (std::uint64_t at = in.offset; at < std::size(entries); ++at) {
        const Entry& entry = entries[at];
        const std::size_t length = FUSE_DIRENT_ALIGN(FUSE_NAME_OFFSET + entry.name.size());
        if (length > room.size() - used)
            break;
        std::memset(room.data() + used, 0, length);
        const fuse_dirent head{.ino = entry.node,
                               .off = at + 1,
                               .namelen = static_cast<std::uint32_t>(entry.name.size()),
                               .type = entry.type};
        std::memcpy(room.data() + used, &head, FUSE_NAME_OFFSET);
        entry.name.copy(reinterpret_cast<char*>(room.data()) + used + FUSE_NAME_OFFSET, entry.name.size());
        used += length;
    }
    reply.Send(room.first(used));
}

void Server::DescribeSystem(Reply& reply) {
    fuse_statfs_out out{};
    out.st.blocks = device_.Size() / kBlockSize;
    out.st.files = 1;
    out.st.bsize = kBlockSize;
    out.st.frsize = kBlockSize;
    out.st.namelen = 255;
    reply.SendRecord(out);
}

} // namespace quilla::fuse
