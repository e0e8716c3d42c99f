#pragma once

#include <string>
#include <vector>

namespace quilla {

/// A process that uses something on a mounted file system.
struct Holder {
    int process = 0;
    std::string name;
};

/// Who has a file, a working folder or a program on the file system of a folder, as far as this user may see.
[[nodiscard]] std::vector<Holder> FindHolders(const std::string& folder);

} // namespace quilla
