#include "ui/toolbar_images.h"

#include "ui/resource.h"

#include <algorithm>
#include <span>

namespace quilla {

namespace {

/// One of the two sizes in which the images are drawn.
struct ImageSet {
    int size;
    int standardId;
    int viewId;
    int ownId;
};

constexpr ImageSet kSmallSet{kSmallImageSize, IDB_STD_SMALL_COLOR, IDB_VIEW_SMALL_COLOR, IDB_CLOSE_VOLUME};
constexpr ImageSet kLargeSet{kLargeImageSize, IDB_STD_LARGE_COLOR, IDB_VIEW_LARGE_COLOR,
                             IDB_CLOSE_VOLUME_LARGE};

int DrawnSize(const ImageSet& set, int cellSize) {
    return set.size * (cellSize / set.size);
}

const ImageSet& ChooseSet(int cellSize) {
    return DrawnSize(kSmallSet, cellSize) >= DrawnSize(kLargeSet, cellSize) ? kSmallSet : kLargeSet;
}

/// A hidden toolbar that loads the platform's images in their own size.
class ImageSource {
  public:
    ImageSource(HWND parent, const ImageSet& set)
        : toolbar_(CreateWindowExW(0, TOOLBARCLASSNAMEW, nullptr, WS_CHILD | CCS_NORESIZE, 0, 0, 0, 0, parent,
                                   nullptr, GetModuleHandleW(nullptr), nullptr)) {
        SendMessageW(toolbar_, TB_BUTTONSTRUCTSIZE, sizeof(TBBUTTON), 0);
        SendMessageW(toolbar_, TB_SETBITMAPSIZE, 0, MAKELPARAM(set.size, set.size));
        Add(HINST_COMMCTRL, set.standardId, kStandardImages);
        Add(HINST_COMMCTRL, set.viewId, kViewImages);
        Add(GetModuleHandleW(nullptr), set.ownId, 1);
    }
    ~ImageSource() { DestroyWindow(toolbar_); }
    ImageSource(const ImageSource&) = delete;
    ImageSource& operator=(const ImageSource&) = delete;

    [[nodiscard]] HIMAGELIST Images() const {
        return reinterpret_cast<HIMAGELIST>(SendMessageW(toolbar_, TB_GETIMAGELIST, 0, 0));
    }

  private:
    void Add(HINSTANCE module, int id, int count) const {
        TBADDBITMAP bitmap{.hInst = module, .nID = static_cast<UINT_PTR>(id)};
        SendMessageW(toolbar_, TB_ADDBITMAP, static_cast<WPARAM>(count), reinterpret_cast<LPARAM>(&bitmap));
    }

    HWND toolbar_;
};

/// A square bitmap to draw on, with its pixels in reach.
class Canvas {
  public:
    explicit Canvas(int size) : size_(size), context_(CreateCompatibleDC(nullptr)) {
        BITMAPINFO info{};
        info.bmiHeader.biSize = sizeof(info.bmiHeader);
        info.bmiHeader.biWidth = size;
        info.bmiHeader.biHeight = -size; // the first row is the top one
        info.bmiHeader.biPlanes = 1;
        info.bmiHeader.biBitCount = 32;
        void* pixels = nullptr;
        bitmap_.Reset(CreateDIBSection(context_.Get(), &info, DIB_RGB_COLORS, &pixels, nullptr, 0));
        pixels_ = static_cast<RGBQUAD*>(pixels);
        previous_ = SelectObject(context_.Get(), bitmap_.Get());
    }
    ~Canvas() { SelectObject(context_.Get(), previous_); }
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;

    [[nodiscard]] std::span<RGBQUAD> Pixels() const {
        return {pixels_, pixels_ ? static_cast<std::size_t>(size_ * size_) : 0};
    }
    [[nodiscard]] RGBQUAD& At(int x, int y) const { return pixels_[y * size_ + x]; }
    [[nodiscard]] bool IsValid() const { return pixels_ != nullptr; }

    /// Draws an image of a list on a background of one colour.
    void Draw(HIMAGELIST images, int index, COLORREF background) const {
        const RECT all{0, 0, size_, size_};
        SetBkColor(context_.Get(), background);
        ExtTextOutW(context_.Get(), 0, 0, ETO_OPAQUE, &all, nullptr, 0, nullptr);
        ImageList_Draw(images, index, context_.Get(), 0, 0, ILD_TRANSPARENT);
        GdiFlush();
    }

    /// Adds the pixels, opacity included, to a list.
    void AddTo(HIMAGELIST images) const {
        SelectObject(context_.Get(), previous_);
        ImageList_Add(images, bitmap_.Get(), nullptr);
        SelectObject(context_.Get(), bitmap_.Get());
    }

  private:
    int size_;
    UniqueMemoryContext context_;
    UniqueBitmap bitmap_;
    RGBQUAD* pixels_ = nullptr;
    HGDIOBJ previous_;
};

/// What a channel was before it was drawn on black, given what came out and the opacity.
BYTE Undo(BYTE onBlack, int opacity) {
    return static_cast<BYTE>(std::min(255, onBlack * 255 / std::max(opacity, 1)));
}

/// Reads an image of a list. Its opacity, whether from a mask or its own, shows in how far drawings of it on
/// black and on white differ.
void ReadImage(const Canvas& image, HIMAGELIST images, int index, int size) {
    const Canvas onWhite(size);
    if (!onWhite.IsValid())
        return;
    onWhite.Draw(images, index, RGB(255, 255, 255));
    image.Draw(images, index, RGB(0, 0, 0));
    const RGBQUAD* white = onWhite.Pixels().data();
    for (RGBQUAD& pixel : image.Pixels()) {
        const int opacity = 255 - std::max(0, white++->rgbGreen - pixel.rgbGreen);
        pixel = {Undo(pixel.rgbBlue, opacity), Undo(pixel.rgbGreen, opacity), Undo(pixel.rgbRed, opacity),
                 static_cast<BYTE>(opacity)};
    }
}

/// Copies an image into the middle of a cell, enlarged by a whole factor.
void Enlarge(const Canvas& cell, int cellSize, const Canvas& image, int size) {
    const int factor = cellSize / size;
    const int edge = (cellSize - factor * size) / 2;
    for (int y = 0; y < factor * size; ++y)
        for (int x = 0; x < factor * size; ++x)
            cell.At(edge + x, edge + y) = image.At(x / factor, y / factor);
}

/// Makes an image grey and half as strong.
void Fade(const Canvas& cell) {
    for (RGBQUAD& pixel : cell.Pixels()) {
        const auto grey = static_cast<BYTE>((pixel.rgbRed * 3 + pixel.rgbGreen * 6 + pixel.rgbBlue) / 10);
        pixel = {grey, grey, grey, static_cast<BYTE>(pixel.rgbReserved * 2 / 5)};
    }
}

UniqueImageList CreateList(int cellSize, int count) {
    return UniqueImageList(ImageList_Create(cellSize, cellSize, ILC_COLOR32, count, 0));
}

} // namespace

ToolbarImages LoadToolbarImages(HWND parent, int cellSize) {
    cellSize = std::max(cellSize, kSmallImageSize);
    const ImageSet& set = ChooseSet(cellSize);
    const ImageSource source(parent, set);
    const int count = ImageList_GetImageCount(source.Images());
    ToolbarImages images{.normal = CreateList(cellSize, count), .faded = CreateList(cellSize, count)};
    for (int index = 0; index < count; ++index) {
        const Canvas image(set.size);
        const Canvas cell(cellSize);
        if (!image.IsValid() || !cell.IsValid())
            break;
        ReadImage(image, source.Images(), index, set.size);
        Enlarge(cell, cellSize, image, set.size);
        cell.AddTo(images.normal.Get());
        Fade(cell);
        cell.AddTo(images.faded.Get());
    }
    return images;
}

} // namespace quilla
