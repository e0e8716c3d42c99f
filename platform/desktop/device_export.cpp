#include "platform/desktop/device_export.h"

#include "platform/desktop/private_file.h"
#include "platform/random.h"
#include "platform/wipe.h"

#include <cstdio>
#include <cwchar>
#include <new>

namespace quilla {

namespace {

constexpr std::size_t kRandomBytes = 16;
/// "SECn-", two digits per random byte and the terminating zero.
using ExportName = std::array<char, 5 + 2 * kRandomBytes + 1>;

bool MakeExportName(unsigned index, ExportName& name) {
    std::array<std::byte, kRandomBytes> random;
    if (!FillFromSystemRandom(random))
        return false;
    std::size_t length = static_cast<std::size_t>(std::snprintf(name.data(), name.size(), "SEC%u-", index));
    for (const std::byte value : random) {
        constexpr char kDigits[] = "0123456789abcdef";
        name[length++] = kDigits[std::to_integer<unsigned>(value) >> 4];
        name[length++] = kDigits[std::to_integer<unsigned>(value) & 15];
    }
    name[length] = 0;
    return true;
}

/// "SECn.uri"
struct UriFileName {
    explicit UriFileName(unsigned index) { std::swprintf(text, std::size(text), L"SEC%u.uri", index); }
    wchar_t text[16];
};

} // namespace

bool DeviceExport::Start(BlockDevice& device, unsigned index) {
    Stop();
    ExportName name;
    if (!MakeExportName(index, name))
        return false;
    server_.reset(new (std::nothrow) NbdServer(device, name.data()));
    if (!server_ || !server_->Start()) {
        server_.reset();
        return false;
    }
    index_ = index;
    std::snprintf(uri_.data(), uri_.size(), "nbd://127.0.0.1:%u/%s", static_cast<unsigned>(server_->Port()),
                  name.data());
    std::array<char, kUriSize + 1> line;
    std::snprintf(line.data(), line.size(), "%s\n", uri_.data());
    static_cast<void>(WritePrivateFile(UriFileName(index).text, line.data()));
    return true;
}

unsigned DeviceExport::Stop() {
    if (!server_)
        return 0;
    RemovePrivateFile(UriFileName(index_).text);
    const NbdStopReport report = server_->Stop();
    server_.reset();
    uri_.fill(0);
    return report.clientsCutOff;
}

} // namespace quilla
