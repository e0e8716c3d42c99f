// Files for the user alone: the access list, the folder, and the way a file comes to be there whole.

#include "desktop/private_file.h"

#include "platform/win32/format_text.h"
#include "platform/win32/handle.h"

#include <array>

#include <sddl.h>

namespace quilla {

namespace {

struct LocalMemoryTraits {
    using Type = void*;
    static Type Empty() { return nullptr; }
    static void Close(Type memory) { LocalFree(memory); }
};
using UniqueLocalMemory = UniqueHandle<LocalMemoryTraits>;

/// The text form of the security identifier that this process runs under.
UniqueLocalMemory CurrentUserSid() {
    HANDLE opened = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened))
        return {};
    const UniqueHandle<KernelHandleTraits> token(opened);
    alignas(TOKEN_USER) std::array<std::byte, sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE> user;
    DWORD size = 0;
    wchar_t* text = nullptr;
    if (!GetTokenInformation(token.Get(), TokenUser, user.data(), static_cast<DWORD>(user.size()), &size) ||
        !ConvertSidToStringSidW(reinterpret_cast<const TOKEN_USER*>(user.data())->User.Sid, &text))
        return {};
    return UniqueLocalMemory(text);
}

/// A security descriptor that gives everything to the current user, nothing to anybody else, and inherits
/// nothing; what is created below a folder of this kind gets the same.
UniqueLocalMemory OwnerOnlyDescriptor() {
    const UniqueLocalMemory user = CurrentUserSid();
    std::array<wchar_t, 256> rules;
    if (!user || !FormatText(rules, L"D:P(A;OICI;FA;;;%ls)", static_cast<const wchar_t*>(user.Get())))
        return {};
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    ConvertStringSecurityDescriptorToSecurityDescriptorW(rules.data(), SDDL_REVISION_1, &descriptor, nullptr);
    return UniqueLocalMemory(descriptor);
}

bool WriteNewFile(const wchar_t* path, SECURITY_ATTRIBUTES& security, std::string_view content) {
    const UniqueFile file(
        CreateFileW(path, GENERIC_WRITE, 0, &security, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    return file &&
           WriteFile(file.Get(), content.data(), static_cast<DWORD>(content.size()), &written, nullptr) &&
           written == content.size();
}

} // namespace

bool PrivatePath(std::wstring_view name, PathText& path) {
    PathText base;
    const DWORD length = GetEnvironmentVariableW(L"LOCALAPPDATA", base, kPathUnits);
    if (length == 0 || length >= kPathUnits)
        return false;
    return FormatText(path, name.empty() ? L"%ls\\%ls" : L"%ls\\%ls\\%.*ls", base, kPrivateFolder,
                      static_cast<int>(name.size()), name.data());
}

UniqueFile WritePrivateFile(std::wstring_view name, std::string_view content) {
    PathText folder;
    PathText path;
    PathText unfinished; // one for each file: the user's other sessions write into the folder, too
    if (!PrivatePath({}, folder) || !PrivatePath(name, path) || !FormatText(unfinished, L"%ls.new", path))
        return {};
    const UniqueLocalMemory descriptor = OwnerOnlyDescriptor();
    if (!descriptor)
        return {};
    SECURITY_ATTRIBUTES security{
        .nLength = sizeof(security), .lpSecurityDescriptor = descriptor.Get(), .bInheritHandle = FALSE};
    CreateDirectoryW(folder, &security); // it may well exist
    // Between its coming and its being held, another session may take it for a left-over and remove it.
    constexpr int kAttempts = 20;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        DeleteFileW(unfinished); // left by a process that was ended half-way
        if (WriteNewFile(unfinished, security, content) &&
            MoveFileExW(unfinished, path, MOVEFILE_REPLACE_EXISTING)) {
            UniqueFile held(
                CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
            if (held)
                return held;
        }
        Sleep(1);
    }
    DeleteFileW(unfinished);
    return {};
}

bool IsPrivateFileHeld(std::wstring_view name) {
    constexpr DWORD kAnySharing = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    PathText path;
    return PrivatePath(name, path) &&
           !UniqueFile(CreateFileW(path, DELETE, kAnySharing, nullptr, OPEN_EXISTING, 0, nullptr)) &&
           GetLastError() == ERROR_SHARING_VIOLATION;
}

void RemovePrivateFile(std::wstring_view name) {
    PathText path;
    if (PrivatePath(name, path))
        DeleteFileW(path);
}

} // namespace quilla
