#include "export/fuse/reply.h"

#include "platform/wipe.h"

#include <sys/mman.h>

namespace quilla::fuse {

Server::Buffer::Buffer() {
    static_cast<void>(mlock(bytes, sizeof(bytes))); // a small limit may refuse
    std::memset(bytes, 0, sizeof(bytes));           // brings the pages in
}

Server::Buffer::~Buffer() {
    WipeMemory(bytes, sizeof(bytes));
}

} // namespace quilla::fuse
