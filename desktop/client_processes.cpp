#include "desktop/client_processes.h"

#include "platform/text.h"
#include "platform/win32/format_text.h"
#include "platform/win32/handle.h"

#include <windows.h>
#include <winsock2.h>

#include <algorithm>
#include <cstddef>
#include <cwchar>
#include <iphlpapi.h>
#include <iterator>
#include <memory>
#include <new>
#include <string_view>

namespace quilla {

namespace {

constexpr DWORD kLoopback = 0x0100007F; // 127.0.0.1 in the byte order of the network

/// The system's table of TCP connections with their owners. The library that has it is loaded for a question
/// that is rarely asked.
class ConnectionTable {
  public:
    ConnectionTable() : library_(LoadLibraryExW(L"iphlpapi.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32)) {
        const auto read = reinterpret_cast<decltype(&GetExtendedTcpTable)>(reinterpret_cast<void*>(
            library_ ? GetProcAddress(library_.Get(), "GetExtendedTcpTable") : nullptr));
        constexpr int kTries = 4; // it grows while it is asked for
        DWORD size = 0;
        for (int i = 0; read && i < kTries; ++i) {
            const DWORD result =
                read(bytes_.get(), &size, FALSE, AF_INET, TCP_TABLE_OWNER_PID_CONNECTIONS, 0);
            if (result == NO_ERROR)
                return;
            bytes_.reset(result == ERROR_INSUFFICIENT_BUFFER ? new (std::nothrow) std::byte[size] : nullptr);
            if (!bytes_)
                return;
        }
        bytes_.reset();
    }

    [[nodiscard]] std::span<const MIB_TCPROW_OWNER_PID> Rows() const {
        const auto* const table = reinterpret_cast<const MIB_TCPTABLE_OWNER_PID*>(bytes_.get());
        return table ? std::span(table->table, table->dwNumEntries) : std::span<const MIB_TCPROW_OWNER_PID>();
    }

  private:
    UniqueLibrary library_;
    std::unique_ptr<std::byte[]> bytes_;
};

std::uint16_t PortOf(DWORD networkOrder) {
    return static_cast<std::uint16_t>((networkOrder & 0xFF) << 8 | (networkOrder >> 8 & 0xFF));
}

/// The file name of a process's program; empty if the system does not tell.
std::wstring_view NameProcess(DWORD id, PathText& path) {
    const UniqueProcess process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
    DWORD length = kPathUnits;
    if (!process || !QueryFullProcessImageNameW(process.Get(), 0, path, &length))
        return {};
    const std::wstring_view name(path, length);
    return name.substr(name.rfind(L'\\') + 1);
}

void DescribeClient(const MIB_TCPROW_OWNER_PID& row, std::span<wchar_t> line) {
    PathText path;
    const std::wstring_view name = row.dwOwningPid != 0 ? NameProcess(row.dwOwningPid, path) : L"";
    const unsigned port = PortOf(row.dwLocalPort);
    if (name.empty())
        FormatText(line, L"\n127.0.0.1:%u", port);
    else
        FormatText(line, L"\n127.0.0.1:%u, %.64ls (process %lu)", port, name.data(), row.dwOwningPid);
}

} // namespace

void DescribeConnections(std::span<const std::uint16_t> ports, std::span<wchar_t> text) {
    text[0] = 0;
    const ConnectionTable table;
    for (const MIB_TCPROW_OWNER_PID& row : table.Rows()) {
        // The client's end; the other end, of this program, stands in a row of its own.
        const bool isClient = row.dwState == MIB_TCP_STATE_ESTAB && row.dwRemoteAddr == kLoopback &&
                              std::ranges::find(ports, PortOf(row.dwRemotePort)) != ports.end();
        if (!isClient)
            continue;
        wchar_t line[128];
        DescribeClient(row, line);
        const std::size_t used = std::wcslen(text.data());
        if (used + std::wcslen(line) >= text.size())
            return;
        FormatText(text.subspan(used), L"%ls", line);
    }
}

} // namespace quilla
