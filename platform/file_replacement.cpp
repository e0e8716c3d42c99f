#include "platform/file_replacement.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace quilla {

namespace {

constexpr char kSuffix[] = ".quilla-new";

static_assert(std::size(kSuffix) <= kRoomForSuffix);

/// Writes the path of a file itself and of the new one beside it.
bool NamePaths(const PathUnit* path, std::span<PathUnit, kLongestPath> own,
               std::span<PathUnit, kLongestPath + kRoomForSuffix> beside) {
    if (!ResolvePath(path, own))
        return false;
    const std::basic_string_view<PathUnit> name(own.data());
    std::ranges::copy(kSuffix, std::ranges::copy(name, beside.begin()).out);
    return true;
}

} // namespace

FileReplacement::FileReplacement(const PathUnit* path, File& old) : old_(old) {
    if (!NamePaths(path, path_, newPath_))
        return;
    new_ = File::CreateTransient(newPath_);
    isBeside_ = new_.IsOpen();
}

FileReplacement::~FileReplacement() {
    new_.Close();
    if (isBeside_)
        File::Remove(newPath_);
}

bool FileReplacement::PutInPlace() {
    if (!new_.Flush() || !new_.Keep(newPath_) || !CopyFileProperties(path_, newPath_))
        return false;
    new_.Close();
    if (!kReplacesOpenFiles)
        old_.Close(); // until here its lock kept others out
    if (!RenameOver(newPath_, path_))
        return false;
    isBeside_ = false;
    old_.Close();
    return true;
}

void RemoveUnfinishedReplacement(const PathUnit* path, const File& file) {
    PathUnit own[kLongestPath];
    PathUnit beside[kLongestPath + kRoomForSuffix];
    if (file.IsIntact(0) && NamePaths(path, own, beside)) // else it has been replaced meanwhile
        File::Remove(beside);
}

} // namespace quilla
