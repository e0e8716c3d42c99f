#pragma once

#include "platform/file_name.h"

namespace quilla {

/// The new file's name has so many units more, its terminator included.
inline constexpr std::size_t kRoomForSuffix = 12;

/// A new version of a file, written beside it and put in its place in one step, so that a process killed
/// meanwhile leaves the old file or the new one. The new file gets the attributes, owner and permissions of
/// the old one. After a failure the platform's last error is the one of the call that failed.
class FileReplacement {
  public:
    /// Creates the new file, empty; New() is not open on failure. The old file is to be open for this process
    /// alone.
    FileReplacement(const PathUnit* path, File& old);

    /// Removes the new file unless it was put in place.
    ~FileReplacement();
    FileReplacement(const FileReplacement&) = delete;
    FileReplacement& operator=(const FileReplacement&) = delete;

    [[nodiscard]] const File& New() const { return new_; }

    /// Brings the new file to the medium and gives it the old one's name. Closes both.
    [[nodiscard]] bool PutInPlace();

  private:
    File& old_;
    File new_;
    bool isBeside_ = false;
    PathUnit path_[kLongestPath];
    PathUnit newPath_[kLongestPath + kRoomForSuffix];
};

/// Removes what a process killed in a replacement may have left beside a file. While the file is open here
/// nobody is at work on one.
void RemoveUnfinishedReplacement(const PathUnit* path, const File& file);

} // namespace quilla
