#include "desktop/device_export.h"

#include "desktop/private_file.h"
#include "export/export_name.h"
#include "platform/win32/format_text.h"
#include "platform/wipe.h"

#include <cstdio>
#include <new>

namespace quilla {

namespace {

/// "SECn.uri" and the like.
struct DeviceFileName {
    DeviceFileName(unsigned index, const wchar_t* extension) {
        FormatText(text, L"%ls%u.%ls", kWideDevicePrefix, index, extension);
    }
    wchar_t text[16];
};

constexpr wchar_t kUri[] = L"uri";
constexpr wchar_t kKeys[] = L"iscsi";
/// Left by the script that attaches a volume: the letters of its drive.
constexpr wchar_t kDrive[] = L"drive";

void RemoveFiles(unsigned index) {
    for (const wchar_t* extension : {kUri, kKeys, kDrive})
        RemovePrivateFile(DeviceFileName(index, extension).text);
}

} // namespace

bool DeviceExport::Start(BlockDevice& device, unsigned index) {
    Stop();
    ExportName name;
    if (!MakeExportName(index, name))
        return false;
    target_.reset();
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
    uriFile_ = WritePrivateFile(DeviceFileName(index, kUri).text, line.data());
    StartTarget(device);
    isServed_ = true;
    return true;
}

/// The second way to the volume. A system that refuses it leaves the first.
void DeviceExport::StartTarget(BlockDevice& device) {
    Secret<iscsi::TargetKeys> keys;
    if (!iscsi::MakeTargetKeys(index_, *keys))
        return;
    std::array<char, 8> label;
    std::snprintf(label.data(), label.size(), "%s%u", kDevicePrefix, index_ % kMaxDevices);
    target_.reset(new (std::nothrow) iscsi::Target(device, ranges_, *keys, label.data()));
    if (!target_ || !target_->Start()) {
        target_.reset();
        return;
    }
    Secret<std::array<char, 256>> text;
    std::snprintf(text->data(), text->size(), "address=127.0.0.1\nport=%u\ntarget=%s\nuser=%s\nsecret=%s\n",
                  static_cast<unsigned>(target_->Port()), keys->name.data(), iscsi::kTargetUser,
                  keys->secret.data());
    keysFile_ = WritePrivateFile(DeviceFileName(index_, kKeys).text, text->data());
}

StopReport DeviceExport::Stop() {
    if (!isServed_.exchange(false))
        return {};
    uriFile_.Reset();
    keysFile_.Reset();
    RemoveFiles(index_);
    const StopReport target = target_ ? target_->Stop() : StopReport{};
    const StopReport server = server_->Stop();
    return {.clientsCutOff = target.clientsCutOff + server.clientsCutOff,
            .flushed = target.flushed && server.flushed};
}

void DeviceExport::RemoveLeftovers() {
    for (unsigned index = 0; index < kMaxDevices; ++index)
        if (!IsElsewhere(index))
            RemoveFiles(index);
}

bool DeviceExport::IsElsewhere(unsigned index) {
    return IsPrivateFileHeld(DeviceFileName(index, kUri).text);
}

} // namespace quilla
