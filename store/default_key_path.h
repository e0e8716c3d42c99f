#pragma once

#include "platform/text.h"

namespace quilla {

/// The key file that belongs to a volume unless the user says otherwise: the volume's path with the extension
/// of its last component, if it has one, replaced by ".key". A result that does not fit is cut.
void DefaultKeyPath(TextView volumePath, PathText& keyPath);

} // namespace quilla
