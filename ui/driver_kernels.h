#pragma once

#include <span>

namespace quilla {

/// Writes a line that names the cipher kernels which the driver beside the program uses on this processor, or
/// that there is no driver.
void DescribeDriverKernels(std::span<wchar_t> text);

} // namespace quilla
