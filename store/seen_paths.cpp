#include "store/seen_paths.h"

#include <new>

namespace quilla {

namespace {

/// FNV-1a, 32 bits, over folded units; never zero.
std::uint32_t HashPath(TextView path) {
    PathText folded{};
    CopyText(folded, path);
    FoldToLower(folded);
    std::uint32_t hash = 0x811C9DC5;
    for (const TextUnit unit : FieldText(folded))
        hash = (hash ^ unit) * 0x01000193;
    return hash | 1;
}

} // namespace

SeenPaths::SeenPaths(std::size_t count) : room_(count) {
    while (capacity_ < 2 * count)
        capacity_ *= 2;
    hashes_.reset(new (std::nothrow) std::uint32_t[capacity_]{});
}

bool SeenPaths::Add(TextView path) {
    if (!hashes_ || room_ == 0)
        return true;
    const std::uint32_t hash = HashPath(path);
    std::size_t slot = (hash >> 1) & (capacity_ - 1);
    for (; hashes_[slot] != 0; slot = (slot + 1) & (capacity_ - 1))
        if (hashes_[slot] == hash)
            return true;
    hashes_[slot] = hash;
    --room_;
    return false;
}

} // namespace quilla
