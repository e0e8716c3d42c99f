#pragma once

#include "platform/text.h"
#include "platform/win32/handle.h"

#include <string_view>

namespace quilla {

/// The folder where the program leaves what other programs of the same user may read: "Quilla Tarn" in the
/// user's local application data.
inline constexpr wchar_t kPrivateFolder[] = L"Quilla Tarn";

/// Writes a small file into that folder, which is created where it is missing, in such a way that nobody but
/// the user (and the system's administrators by their own means) can open either, and that a reader finds the
/// whole content or no file. As long as the result is held nobody can remove or replace the file, which the
/// user's other sessions share; empty if the system refuses.
[[nodiscard]] UniqueFile WritePrivateFile(std::wstring_view name, std::string_view content);

/// Full path of the folder, or of a file in it; false if it does not fit or there is no such place.
[[nodiscard]] bool PrivatePath(std::wstring_view name, PathText& path);

/// Whether somebody, such as this program in another session, holds such a file.
[[nodiscard]] bool IsPrivateFileHeld(std::wstring_view name);

/// Removes such a file unless somebody holds it.
void RemovePrivateFile(std::wstring_view name);

} // namespace quilla
