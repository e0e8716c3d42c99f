// Stands where Windows has its PowerShell and records what it is given: a line with its command line, one
// with the names and values of its environment and one with the key file, in "seen" beside it. It waits while
// "wait" is there and answers with what is in "say".

#include "platform/win32/handle.h"

#include <algorithm>
#include <cwchar>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <windows.h>

namespace {

using quilla::UniqueFile;

std::string Narrow(std::wstring_view text) {
    std::string bytes(text.size(), 0);
    std::ranges::transform(text, bytes.begin(), [](wchar_t unit) { return static_cast<char>(unit); });
    return bytes;
}

std::string Read(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator(file), {}};
}

/// The value of a parameter, which stands in quotation marks.
std::string Parameter(const std::string& line, const std::string& name) {
    const std::size_t begin = line.find(name + " \"") + name.size() + 2;
    return line.substr(begin, line.find('"', begin) - begin);
}

} // namespace

int main() {
    char path[MAX_PATH];
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    const std::string folder = std::string(path).substr(0, std::string_view(path).rfind('\\') + 1);
    const std::string line = Narrow(GetCommandLineW());
    std::string environment;
    for (const wchar_t* next = GetEnvironmentStringsW(); *next; next += std::wcslen(next) + 1)
        environment += Narrow(next) + ' ';
    std::ofstream(folder + "seen", std::ios::binary) << line << '\n'
                                                     << environment << '\n'
                                                     << Read(Parameter(line, "-KeyFile"));
    while (GetFileAttributesA((folder + "wait").c_str()) != INVALID_FILE_ATTRIBUTES)
        Sleep(10);
    // As the script does it: made anew, others may read meanwhile.
    const UniqueFile answer(CreateFileA(Parameter(line, "-AnswerFile").c_str(), GENERIC_WRITE,
                                        FILE_SHARE_READ, nullptr, CREATE_ALWAYS, 0, nullptr));
    const std::string said = Read(folder + "say");
    DWORD size = 0;
    return answer && WriteFile(answer.Get(), said.data(), static_cast<DWORD>(said.size()), &size, nullptr)
               ? 0
               : 3;
}
