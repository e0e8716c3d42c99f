#include "volume/data_file.h"

namespace quilla {

bool CreateDataFile(const PathUnit* path, std::uint64_t size) {
    File file = File::Open(path, FileAccess::Write, FileSharing::None, FileCreation::CreateNew);
    if (!file.IsOpen() || file.SetSize(size))
        return file.IsOpen();
    file.Close();
    File::Remove(path);
    return false;
}

} // namespace quilla
