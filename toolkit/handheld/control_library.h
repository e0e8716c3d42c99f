#pragma once

#include <algorithm>
#include <string_view>
#include <windows.h>

namespace quilla {

/// The name of a function that commctrl.dll exports; any other does not compile.
class ControlFunction {
  public:
    consteval ControlFunction(const wchar_t* name) : name_(name) {
        if (std::ranges::find(kExports, name) == std::end(kExports))
            ReportThatItIsNotExported();
    }
    [[nodiscard]] const wchar_t* Name() const { return name_; }

  private:
    static constexpr std::wstring_view kExports[] = {
        L"CommandBands_AddAdornments",
        L"CommandBands_AddBands",
        L"CommandBands_Create",
        L"CommandBands_GetCommandBar",
        L"CommandBands_GetRestoreInformation",
        L"CommandBands_Show",
        L"CommandBar_AddAdornments",
        L"CommandBar_AddBitmap",
        L"CommandBar_Create",
        L"CommandBar_DrawMenuBar",
        L"CommandBar_GetMenu",
        L"CommandBar_Height",
        L"CommandBar_InsertComboBox",
        L"CommandBar_InsertMenubar",
        L"CommandBar_InsertMenubarEx",
        L"CommandBar_Show",
        L"InitCommonControls",
        L"InitCommonControlsEx",
        L"IsCommandBarMessage",
    };

    static void ReportThatItIsNotExported(); // not to be called while compiling

    const wchar_t* name_;
};

/// Looks a function up in the system's library of common controls; null if that cannot be loaded.
[[nodiscard]] FARPROC FindInControlLibrary(ControlFunction function);

} // namespace quilla
