#pragma once

#include "platform/win32/handle.h"
#include "ui/resource.h"

#include <windows.h>

#include <commctrl.h>

namespace quilla {

struct IconTraits {
    using Type = HICON;
    static Type Empty() { return nullptr; }
    static void Close(Type icon) { DestroyIcon(icon); }
};

struct FontTraits {
    using Type = HFONT;
    static Type Empty() { return nullptr; }
    static void Close(Type font) { DeleteObject(font); }
};

struct MenuTraits {
    using Type = HMENU;
    static Type Empty() { return nullptr; }
    static void Close(Type menu) { DestroyMenu(menu); }
};

struct ImageListTraits {
    using Type = HIMAGELIST;
    static Type Empty() { return nullptr; }
    static void Close(Type images) { ImageList_Destroy(images); }
};

struct MemoryContextTraits {
    using Type = HDC;
    static Type Empty() { return nullptr; }
    static void Close(Type context) { DeleteDC(context); }
};

struct BitmapTraits {
    using Type = HBITMAP;
    static Type Empty() { return nullptr; }
    static void Close(Type bitmap) { DeleteObject(bitmap); }
};

using UniqueIcon = UniqueHandle<IconTraits>;
using UniqueFont = UniqueHandle<FontTraits>;
using UniqueMenu = UniqueHandle<MenuTraits>;
using UniqueImageList = UniqueHandle<ImageListTraits>;
using UniqueMemoryContext = UniqueHandle<MemoryContextTraits>;
using UniqueBitmap = UniqueHandle<BitmapTraits>;

/// An icon of the program in the size that suits best a number of pixels.
[[nodiscard]] UniqueIcon LoadProgramIcon(int size, int id = IDI_PROGRAM);

/// The font of the dialogs, in the size for a window's resolution.
[[nodiscard]] UniqueFont CreateDialogFont(HWND window);

} // namespace quilla
