#include "linux/drive.h"

#include "linux/folder_drive.h"
#include "linux/nbd_drive.h"

#include <new>

namespace quilla {

std::unique_ptr<Drive> MakeDrive(const ServiceOrder& order, BlockDevice& device) {
    if (order.kind == DriveKind::Nbd)
        return std::unique_ptr<Drive>(new (std::nothrow) NbdDrive(order, device));
    return std::unique_ptr<Drive>(new (std::nothrow) FolderDrive(order, device));
}

} // namespace quilla
