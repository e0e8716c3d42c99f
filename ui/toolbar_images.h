#pragma once

#include "ui/gui_handles.h"

namespace quilla {

/// Order of the toolbar's images: the platform's 15 standard and 12 view images, then the program's own.
inline constexpr int kStandardImages = 15;
inline constexpr int kViewImages = 12;
inline constexpr int kFirstViewImage = kStandardImages;
inline constexpr int kCloseVolumeImage = kStandardImages + kViewImages;

/// Pixels of the platform's small images; the large ones have half as much again.
inline constexpr int kSmallImageSize = 16;
inline constexpr int kLargeImageSize = 24;

/// The images as they are, and pale and grey for buttons that are disabled.
struct ToolbarImages {
    UniqueImageList normal;
    UniqueImageList faded;
};

/// The toolbar's images in cells of a size in pixels. They are pixel drawings of 16 and 24 pixels: the set
/// that fills the cell best is enlarged by a whole factor and centred, so that they stay crisp at every
/// resolution. The platform hands its images out only through a toolbar, for which parent lends its place.
[[nodiscard]] ToolbarImages LoadToolbarImages(HWND parent, int cellSize);

} // namespace quilla
