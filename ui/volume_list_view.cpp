#include "ui/volume_list_view.h"

#include "platform/win32/format_text.h"
#include "service/driver_control.h"
#include "service/window_messages.h"
#include "store/display_text.h"
#include "store/volume_list.h"
#include "toolkit/dpi.h"
#include "ui/file_name.h"
#include "ui/resource.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <iterator>

namespace quilla {

namespace {

struct Column {
    const wchar_t* title;
    /// Less than, equal to or greater than zero.
    int (*compare)(const VolumeRecord& one, const VolumeRecord& other);
};

template <typename T>
int CompareNumbers(T one, T other) {
    return one < other ? -1 : one > other ? 1 : 0;
}

constexpr Column kColumns[kListColumns] = {
    {L"Volume",
     [](const VolumeRecord& one, const VolumeRecord& other) { return lstrcmpiW(one.Path, other.Path); }},
    {L"Size",
     [](const VolumeRecord& one, const VolumeRecord& other) { return CompareNumbers(one.Size, other.Size); }},
    {L"Encryption",
     [](const VolumeRecord& one, const VolumeRecord& other) {
         return lstrcmpiW(CipherName(one.Cipher), CipherName(other.Cipher));
     }},
    {L"Key", [](const VolumeRecord& one,
                const VolumeRecord& other) { return lstrcmpiW(one.KeyPath, other.KeyPath); }},
    {L"State", [](const VolumeRecord& one,
                  const VolumeRecord& other) { return CompareNumbers(other.IsMounted(), one.IsMounted()); }},
};

struct Order {
    int (*compare)(const VolumeRecord& one, const VolumeRecord& other);
    bool descending;
};

int CALLBACK CompareRows(LPARAM one, LPARAM other, LPARAM context) {
    const Order& order = *reinterpret_cast<const Order*>(context);
    const int result =
        order.compare(*reinterpret_cast<VolumeRecord*>(one), *reinterpret_cast<VolumeRecord*>(other));
    return order.descending ? -result : result;
}

/// Images of rows that are not mounted: one that keeps their texts in line with the others', and one for
/// those whose state tells of something that is missing.
constexpr int kBlankImage = 1;
constexpr int kWarningImage = 2;

constexpr int kStateColumn = kListColumns - 1;

UniqueIcon CreateBlankIcon(int size) {
    constexpr int kLargest = 256;
    constexpr std::size_t kBytes = kLargest * kLargest / 8;
    static BYTE bits[2 * kBytes]; // what is transparent, then what is white
    const int side = std::min(size, kLargest) / 16 * 16;
    const std::size_t used = static_cast<std::size_t>(side) * static_cast<std::size_t>(side) / 8;
    std::memset(bits, 0xFF, used);
    std::memset(bits + used, 0, used);
    const UniqueBitmap mask(CreateBitmap(side, 2 * side, 1, 1, bits));
    ICONINFO description{};
    description.fIcon = TRUE;
    description.hbmMask = mask.Get();
    return UniqueIcon(CreateIconIndirect(&description));
}

POINT MessagePoint() {
    const DWORD position = GetMessagePos();
    return {static_cast<short>(LOWORD(position)), static_cast<short>(HIWORD(position))};
}

} // namespace

void VolumeListView::GetCreateDefaults(WNDCLASSW& windowClass, CREATESTRUCTW& creation) {
    BListView::GetCreateDefaults(windowClass, creation);
    creation.style |= WS_TABSTOP | LVS_REPORT | LVS_SHOWSELALWAYS | LVS_SINGLESEL | LVS_SHAREIMAGELISTS;
}

void VolumeListView::Attach(HWND handle) {
    BListView::Attach(handle);
    if (!hwnd)
        return;
    ListView_SetExtendedListViewStyle(hwnd, LVS_EX_FULLROWSELECT | LVS_EX_INFOTIP | LVS_EX_DOUBLEBUFFER);
    LoadImages();
    AddColumns();
    tip_.CreateFor(hwnd);
}

void VolumeListView::LoadImages() {
    const UINT dpi = WindowDpi(hwnd);
    for (int column = 0; dpi != dpi_ && column < kListColumns; ++column)
        ListView_SetColumnWidth(
            hwnd, column,
            MulDiv(ListView_GetColumnWidth(hwnd, column), static_cast<int>(dpi), static_cast<int>(dpi_)));
    dpi_ = dpi;

    UniqueFont font = CreateDialogFont(hwnd);
    SendMessageW(hwnd, WM_SETFONT, reinterpret_cast<WPARAM>(font.Get()), TRUE);
    font_ = std::move(font);

    const int size = WindowMetric(hwnd, SM_CXSMICON);
    const UniqueIcon icon = LoadProgramIcon(size);
    UniqueImageList images(ImageList_Create(size, size, ILC_COLOR32 | ILC_MASK, 3, 0));
    ImageList_ReplaceIcon(images.Get(), -1, icon.Get());
    ImageList_ReplaceIcon(images.Get(), -1, CreateBlankIcon(size).Get());
    ImageList_ReplaceIcon(images.Get(), -1, LoadIconW(nullptr, IDI_EXCLAMATION));
    ListView_SetImageList(hwnd, images.Get(), LVSIL_SMALL);
    images_ = std::move(images);
}

void VolumeListView::AddColumns() {
    const WindowSettings defaults;
    for (int i = 0; i < kListColumns; ++i) {
        LVCOLUMNW column{};
        column.mask = LVCF_FMT | LVCF_TEXT | LVCF_WIDTH;
        column.fmt = LVCFMT_LEFT;
        column.pszText = const_cast<wchar_t*>(kColumns[i].title);
        column.cx = ScaleToWindow(hwnd, defaults.columnWidths[i]);
        ListView_InsertColumn(hwnd, i, &column);
    }
}

void VolumeListView::Apply(const WindowSettings& settings) {
    for (int column = 0; column < kListColumns; ++column)
        ListView_SetColumnWidth(hwnd, column, ScaleToWindow(hwnd, settings.columnWidths[column]));
    sortColumn_ = settings.sortColumn;
    sortsDescending_ = settings.sortsDescending;
    MarkSortColumn();
    Sort();
}

void VolumeListView::Describe(WindowSettings& settings) const {
    for (int column = 0; column < kListColumns; ++column)
        settings.columnWidths[column] =
            MulDiv(ListView_GetColumnWidth(hwnd, column), USER_DEFAULT_SCREEN_DPI, static_cast<int>(dpi_));
    settings.sortColumn = sortColumn_;
    settings.sortsDescending = sortsDescending_;
}

void VolumeListView::Sort() {
    if (sortColumn_ < 0)
        return;
    const Order order{.compare = kColumns[sortColumn_].compare, .descending = sortsDescending_};
    ListView_SortItems(hwnd, CompareRows, reinterpret_cast<LPARAM>(&order));
}

void VolumeListView::SortBy(int column) {
    sortsDescending_ = column == sortColumn_ && !sortsDescending_;
    sortColumn_ = column;
    MarkSortColumn();
    Sort();
}

void VolumeListView::MarkSortColumn() const {
    const HWND header = ListView_GetHeader(hwnd);
    for (int column = 0; column < kListColumns; ++column) {
        HDITEMW item{};
        item.mask = HDI_FORMAT;
        Header_GetItem(header, column, &item);
        item.fmt &= ~(HDF_SORTUP | HDF_SORTDOWN);
        if (column == sortColumn_)
            item.fmt |= sortsDescending_ ? HDF_SORTDOWN : HDF_SORTUP;
        Header_SetItem(header, column, &item);
    }
}

void VolumeListView::SelectRow(int row) const {
    if (row < 0) // of a list that has run out of memory, or none
        return;
    ListView_SetItemState(hwnd, -1, 0, LVIS_SELECTED);
    ListView_SetItemState(hwnd, row, LVIS_SELECTED | LVIS_FOCUSED, LVIS_SELECTED | LVIS_FOCUSED);
    ListView_EnsureVisible(hwnd, row, FALSE);
}

LRESULT VolumeListView::OnMessage(BMessage& message) {
    tip_.Follow(message);
    constexpr LPARAM kFromKeyboard = -1;
    if (message.message == WM_CONTEXTMENU && message.lParam == kFromKeyboard) {
        OpenMenuByKey();
        return 0;
    }
    if (message.message == WM_CHAR && message.wParam > VK_SPACE) {
        Search(static_cast<wchar_t>(message.wParam));
        return 0;
    }
    if (message.message == WM_PAINT && ListView_GetItemCount(hwnd) == 0) {
        const LRESULT result = BListView::OnMessage(message);
        PaintHint();
        return result;
    }
    return BListView::OnMessage(message);
}

/// Instead of the list's own search, which looks at the paths that rows show.
void VolumeListView::Search(wchar_t unit) {
    constexpr DWORD kPause = 1000; // milliseconds
    const DWORD now = GetTickCount();
    std::size_t length = now - lastTyped_ > kPause ? 0 : std::wcslen(typed_);
    lastTyped_ = now;
    const int first = std::max(SelectedRow(*this) + (length == 0 ? 1 : 0), 0);
    if (length < std::size(typed_) - 1)
        typed_[length++] = unit;
    typed_[length] = 0;
    const int count = ListView_GetItemCount(hwnd);
    for (int i = 0; i < count; ++i) {
        const int row = (first + i) % count;
        const TextView start = FileNameIn(RecordAt(*this, row).Path).substr(0, length);
        if (CompareStringW(LOCALE_USER_DEFAULT, NORM_IGNORECASE, start.data(), static_cast<int>(start.size()),
                           typed_, static_cast<int>(length)) == CSTR_EQUAL) {
            SelectRow(row);
            return;
        }
    }
}

void VolumeListView::PaintHint() const {
    RECT place;
    RECT header;
    GetClientRect(hwnd, &place);
    GetClientRect(ListView_GetHeader(hwnd), &header);
    const int margin = ScaleToWindow(hwnd, 16);
    InflateRect(&place, -margin, -margin);
    place.top += header.bottom;
    const HDC context = GetDC(hwnd);
    const HGDIOBJ former = SelectObject(context, font_.Get());
    SetBkMode(context, TRANSPARENT);
    SetTextColor(context, GetSysColor(COLOR_WINDOWTEXT));
    DrawTextW(context,
              L"No volumes yet. Make one with File > New, take one that exists in with File > Open, or drop "
              L"a volume (*.raw) here.",
              -1, &place, DT_CENTER | DT_WORDBREAK | DT_NOPREFIX);
    SelectObject(context, former);
    ReleaseDC(hwnd, context);
}

void VolumeListView::FillWidth() const {
    ListView_SetColumnWidth(hwnd, kStateColumn, LVSCW_AUTOSIZE_USEHEADER);
}

LRESULT VolumeListView::OnNotify(NMHDR& header) {
    if (header.hwndFrom != hwnd)
        return BListView::OnNotify(header);
    switch (header.code) {
    case static_cast<UINT>(NM_DBLCLK):
        if (reinterpret_cast<NMITEMACTIVATE&>(header).iItem >= 0)
            SendMessageW(GetParent(hwnd), WM_COMMAND, IDM_MOUNT, 0);
        return 0;
    case static_cast<UINT>(NM_CLICK):
        if ((reinterpret_cast<NMITEMACTIVATE&>(header).uKeyFlags & LVKF_ALT) || GetKeyState(VK_MENU) < 0)
            OpenMenu(MessagePoint());
        return 0;
    case static_cast<UINT>(NM_RCLICK):
        OpenMenu(MessagePoint());
        return 1; // or the list would send WM_CONTEXTMENU as well
    case static_cast<UINT>(LVN_KEYDOWN):
        if (reinterpret_cast<NMLVKEYDOWN&>(header).wVKey == VK_F5)
            SendMessageW(GetParent(hwnd), WM_COMMAND, IDM_REFRESH, 0);
        return 0;
    case static_cast<UINT>(LVN_INSERTITEM):
    case static_cast<UINT>(LVN_DELETEITEM):
        InvalidateRect(hwnd, nullptr, TRUE); // the text of an empty list comes or goes
        return 0;
    case static_cast<UINT>(LVN_COLUMNCLICK):
        SortBy(reinterpret_cast<NMLISTVIEW&>(header).iSubItem);
        return 0;
    case static_cast<UINT>(LVN_GETINFOTIPW):
        return OnInfoTip(reinterpret_cast<NMLVGETINFOTIPW&>(header));
    case static_cast<UINT>(LVN_GETDISPINFOW): {
        // A row without an image carries -1, which desktop list views understand as a question.
        LVITEMW& item = reinterpret_cast<NMLVDISPINFOW&>(header).item;
        if (item.mask & LVIF_IMAGE)
            item.iImage = HasState(item.iItem) ? kWarningImage : kBlankImage;
        return 0;
    }
    default:
        return BListView::OnNotify(header);
    }
}

bool VolumeListView::HasState(int row) const {
    wchar_t state[2] = {};
    ListView_GetItemText(hwnd, row, kStateColumn, state, 2);
    return state[0] != 0;
}

LRESULT VolumeListView::OnInfoTip(NMLVGETINFOTIPW& tip) const {
    const VolumeRecord& record = RecordAt(*this, tip.iItem);
    wchar_t state[128] = {};
    ListView_GetItemText(hwnd, tip.iItem, kStateColumn, state, static_cast<int>(std::size(state)));
    wchar_t address[DriverControl::kAddressUnits] = {};
    const bool hasAddress = DriverControl::CopyAddress(record, address);
    FormatText(std::span(tip.pszText, static_cast<std::size_t>(tip.cchTextMax)), L"%ls%ls%ls%ls%ls",
               record.Path, state[0] ? L"\n" : L"", state, hasAddress ? L"\n" : L"",
               hasAddress ? address : L"");
    return 0;
}

void VolumeListView::OpenMenu(POINT screen) const {
    SendMessageW(GetParent(hwnd), WM_LISTMENU, 0, MAKELPARAM(screen.x, screen.y));
}

void VolumeListView::OpenMenuByKey() const {
    POINT place{};
    const int row = SelectedRow(*this);
    RECT label;
    if (row >= 0 && ListView_EnsureVisible(hwnd, row, FALSE) &&
        ListView_GetItemRect(hwnd, row, &label, LVIR_LABEL))
        place = {label.left, label.bottom};
    ClientToScreen(hwnd, &place);
    OpenMenu(place);
}

} // namespace quilla
