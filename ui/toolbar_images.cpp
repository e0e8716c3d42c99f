#include "ui/toolbar_images.h"

#include "ui/resource.h"

#include <algorithm>

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

int ShownSize(const ImageSet& set, int cellSize) {
    return set.size * (cellSize / set.size);
}

const ImageSet& ChooseSet(int cellSize) {
    return ShownSize(kSmallSet, cellSize) >= ShownSize(kLargeSet, cellSize) ? kSmallSet : kLargeSet;
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

/// A square bitmap to draw on.
class Canvas {
  public:
    explicit Canvas(int size) : size_(size) {
        const HDC screen = GetDC(nullptr);
        context_.Reset(CreateCompatibleDC(screen));
        bitmap_.Reset(CreateCompatibleBitmap(screen, size, size));
        ReleaseDC(nullptr, screen);
        previous_ = SelectObject(context_.Get(), bitmap_.Get());
    }
    ~Canvas() { SelectObject(context_.Get(), previous_); }
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;

    [[nodiscard]] HDC Context() const { return context_.Get(); }

    void Fill(COLORREF colour) const {
        const RECT all{0, 0, size_, size_};
        SetBkColor(Context(), colour);
        ExtTextOutW(Context(), 0, 0, ETO_OPAQUE, &all, nullptr, 0, nullptr);
    }

    /// Adds the drawing to a list; one colour is transparent.
    void AddTo(HIMAGELIST images, COLORREF transparent) const {
        SelectObject(Context(), previous_);
        ImageList_AddMasked(images, bitmap_.Get(), transparent);
        SelectObject(Context(), bitmap_.Get());
    }

  private:
    int size_;
    UniqueBitmap bitmap_;
    UniqueMemoryContext context_;
    HGDIOBJ previous_;
};

constexpr COLORREF kTransparent = RGB(254, 1, 253); // in none of the drawings

/// Draws an image in its own size, enlarges it and puts it into the middle of a cell.
void AddEnlarged(HIMAGELIST target, HIMAGELIST source, int index, int drawnSize, int shownSize,
                 int cellSize) {
    const Canvas drawing(drawnSize);
    drawing.Fill(kTransparent);
    ImageList_Draw(source, index, drawing.Context(), 0, 0, ILD_TRANSPARENT);

    const Canvas cell(cellSize);
    cell.Fill(kTransparent);
    const int edge = (cellSize - shownSize) / 2;
    SetStretchBltMode(cell.Context(), COLORONCOLOR);
    StretchBlt(cell.Context(), edge, edge, shownSize, shownSize, drawing.Context(), 0, 0, drawnSize,
               drawnSize, SRCCOPY);
    cell.AddTo(target, kTransparent);
}

} // namespace

UniqueImageList LoadToolbarImages(HWND parent, int cellSize) {
    cellSize = std::max(cellSize, kSmallImageSize);
    const ImageSet& set = ChooseSet(cellSize);
    const ImageSource source(parent, set);
    const int count = ImageList_GetImageCount(source.Images());
    UniqueImageList enlarged(ImageList_Create(cellSize, cellSize, ILC_COLOR24 | ILC_MASK, count, 0));
    for (int i = 0; i < count; ++i)
        AddEnlarged(enlarged.Get(), source.Images(), i, set.size, ShownSize(set, cellSize), cellSize);
    return enlarged;
}

} // namespace quilla
