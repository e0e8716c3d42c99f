#pragma once

#include "linux/control.h"

#include <string>
#include <vector>

namespace quilla {

/// A process that uses something on a mounted file system.
struct Holder {
    int process = 0;
    std::string name;
};

/// Who has a file, a working folder or a program on what a service has mounted, as far as this user may see,
/// or is a client that the service knows of.
[[nodiscard]] std::vector<Holder> FindHolders(const MountState& state);

} // namespace quilla
