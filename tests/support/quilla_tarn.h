#pragma once

#include "store/volume_files.h"
#include "tests/support/export_address.h"
#include "tests/support/program.h"
#include "tests/support/temporary_folder.h"
#include "volume/sha1.h"

#include <gtest/gtest.h>
#include <string>
#include <windows.h>

namespace quilla::test {

/// A path of the build machine as Windows programs see it.
inline std::wstring WindowsPath(std::string_view path) {
    std::wstring text(path.begin(), path.end());
    if (text.starts_with(L'/'))
        text.insert(0, L"Z:");
    for (wchar_t& unit : text)
        unit = unit == L'/' ? L'\\' : unit;
    return text;
}

inline bool Exists(const std::wstring& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

/// Whether the first device is mounted and its address told.
inline bool IsMounted() {
    return Exists(UriFile(0));
}

/// The password key of a password.
inline PasswordDigest KeyOf(std::wstring_view password) {
    PasswordDigest key;
    PasswordKey(key, password);
    return key;
}

/// Creates the two files of a volume of 1 MiB.
inline VolumeRecord CreateVolume(const TemporaryFolder& folder, CipherId cipher, std::wstring_view password) {
    VolumeRecord record{};
    CopyText(record.Path, folder.File(L"mine.raw"));
    CopyText(record.KeyPath, folder.File(L"mine.key"));
    record.Size = 1 << 20;
    record.Cipher = cipher;
    EXPECT_TRUE(BuildVolumeFiles(record, KeyOf(password)));
    return record;
}

/// One run of the built program.
class QuillaTarn : public Program {
  public:
    explicit QuillaTarn(const std::wstring& arguments, const wchar_t* folder = nullptr)
        : Program(WindowsPath(QUILLA_PROGRAM), arguments, folder) {}

    HWND AwaitWindow(const wchar_t* windowClass, const wchar_t* title = nullptr) const {
        HWND window = nullptr;
        EXPECT_TRUE(WaitUntil([&] { return (window = FindTopWindow(windowClass, title)) != nullptr; }))
            << "exit code " << Wait(0) << (MainWindow() != nullptr ? ", with" : ", without")
            << " a main window";
        return window;
    }
    HWND AwaitMainWindow() const { return AwaitWindow(L"BWindow", L"Quilla Tarn"); }

    /// Closes the window, which ends the program while nothing is mounted.
    void Close() const {
        PostMessageW(AwaitMainWindow(), WM_CLOSE, 0, 0);
        EXPECT_EQ(Wait(), 0U);
    }
};

} // namespace quilla::test
