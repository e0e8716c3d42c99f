#pragma once

#include <cstdint>
#include <span>

namespace quilla {

/// Writes a line, with a line break before it, for each connection to ports of this machine: the client's
/// address and, where the system tells, the name and number of its process. What does not fit is left out as
/// a whole line; nothing is written where the system has no table of connections.
void DescribeConnections(std::span<const std::uint16_t> ports, std::span<wchar_t> text);

} // namespace quilla
