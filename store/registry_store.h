#pragma once

namespace quilla {

class BListView;

/// The known volumes between two runs: one binary value per volume under
/// HKEY_CURRENT_USER\Software\Orvane\Quilla\Volumes, named by the volume's path and holding its key path.

/// Adds every volume of the registry to the list. Values without a usable key path get the default one.
void LoadVolumeList(BListView& list);

/// Rewrites the registry key from the rows of the list.
void SaveVolumeList(const BListView& list);

} // namespace quilla
