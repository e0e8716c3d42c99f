#include "export/reply_writer.h"

#include <algorithm>
#include <utility>

namespace quilla {

std::span<std::byte> ReplyWriter::Reserve(std::size_t size) {
    if (buffer_.size() - end_ < size && !Send())
        return {};
    used_ = std::max(used_, end_ + size);
    return buffer_.subspan(end_, size);
}

bool ReplyWriter::Send() {
    const std::size_t gathered = std::exchange(end_, 0);
    return gathered == 0 || stream_.Send(buffer_.first(gathered));
}

} // namespace quilla
