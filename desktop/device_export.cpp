#include "desktop/device_export.h"

#include "desktop/private_file.h"
#include "export/export_name.h"
#include "platform/win32/format_text.h"
#include "platform/wipe.h"

#include <cstdio>
#include <new>

namespace quilla {

namespace {

/// "SECn.uri"
struct UriFileName {
    explicit UriFileName(unsigned index) { FormatText(text, L"%ls%u.uri", kWideDevicePrefix, index); }
    wchar_t text[16];
};

} // namespace

bool DeviceExport::Start(BlockDevice& device, unsigned index) {
    Stop();
    ExportName name;
    if (!MakeExportName(index, name))
        return false;
    server_.reset(new (std::nothrow) nbd::Server(device, ranges_, name.data()));
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
    isServed_ = true;
    return true;
}

StopReport DeviceExport::Stop() {
    if (!isServed_.exchange(false))
        return {};
    RemovePrivateFile(UriFileName(index_).text);
    return server_->Stop();
}

void DeviceExport::RemoveLeftovers() {
    for (unsigned index = 0; index < kMaxDevices; ++index)
        RemovePrivateFile(UriFileName(index).text);
}

} // namespace quilla
