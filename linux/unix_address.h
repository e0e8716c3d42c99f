#pragma once

#include <string>
#include <sys/socket.h>
#include <sys/un.h>

namespace quilla {

/// The address of a socket on a path.
class UnixAddress {
  public:
    /// False for a path that is too long.
    [[nodiscard]] bool Fill(const std::string& path) {
        address_.sun_family = AF_UNIX;
        if (path.size() >= sizeof(address_.sun_path))
            return false;
        path.copy(address_.sun_path, path.size());
        return true;
    }
    [[nodiscard]] const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&address_); }
    static constexpr socklen_t Size() { return sizeof(sockaddr_un); }

  private:
    sockaddr_un address_{};
};

} // namespace quilla
