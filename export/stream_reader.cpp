#include "export/stream_reader.h"

#include <algorithm>
#include <cstring>

namespace quilla {

namespace {

/// So little is moved to the front of the buffer for the sake of longer receives; more than a header of any
/// protocol.
constexpr std::size_t kHeaderSize = 64;

} // namespace

bool StreamReader::ReceiveOnce(std::size_t needed, ReadAhead ahead) {
    if (Available() <= kHeaderSize || buffer_.size() - begin_ < needed) {
        std::memmove(buffer_.data(), buffer_.data() + begin_, Available());
        end_ -= begin_;
        begin_ = 0;
    }
    const std::size_t room = ahead == ReadAhead::Yes ? buffer_.size() - end_ : needed - Available();
    const std::size_t count = stream_.Receive(buffer_.subspan(end_, room));
    end_ += count;
    used_ = std::max(used_, end_);
    return count > 0;
}

bool StreamReader::Require(std::size_t needed, ReadAhead ahead) {
    while (Available() < needed)
        if (!ReceiveOnce(needed, ahead))
            return false;
    return true;
}

std::span<std::byte> StreamReader::Take(std::size_t count) {
    const std::span<std::byte> taken = buffer_.subspan(begin_, count);
    begin_ += count;
    return taken;
}

void StreamReader::CopyOut(void* to, std::size_t count) {
    std::memcpy(to, Take(count).data(), count);
}

} // namespace quilla
