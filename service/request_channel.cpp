#include "service/request_channel.h"

#include "platform/win32/handle.h"
#include "platform/wipe.h"
#include "service/request_turn.h"
#include "service/window_messages.h"

namespace quilla {

namespace {

/// One exchange with the window that serves requests; the reply replaces the block. Without a mapping the
/// block stays as it is.
void SendRequest(const HWND& target, RequestBlock& block) {
    const RequestTurn turn;
    // The server acts only while this handle keeps the mapping in existence.
    const UniqueMapping mapping(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                                   kRequestMappingSize, kRequestMappingName));
    const UniqueView view(MapViewOfFile(mapping.Get(), FILE_MAP_WRITE, 0, 0, 0));
    if (!view)
        return;
    auto& shared = *static_cast<RequestBlock*>(view.Get());
    shared = block;
    SendMessageW(target, WM_REQUEST, 0, 0);
    block = shared;
    Wipe(shared);
}

} // namespace

void RequestChannel::SendRecord(RequestCode code, VolumeRecord& record, const PasswordDigest* digest) {
    Secret<RequestBlock> block;
    block->RequestCode = code;
    block->Record = record;
    if (digest != nullptr)
        block->passwordDigest = *digest;
    SendRequest(target_, *block);
    record = block->Record;
}

void RequestChannel::SendCreateVolumeFile(VolumeRecord& record, const PasswordDigest& digest) {
    SendRecord(RequestCode::CreateVolumeFile, record, &digest);
}

void RequestChannel::SendQueryVolume(VolumeRecord& record) {
    SendRecord(RequestCode::QueryVolume, record);
}

void RequestChannel::SendDeleteVolumeFiles(VolumeRecord& record) {
    SendRecord(RequestCode::DeleteVolumeFiles, record);
}

void RequestChannel::SendMountVolume(VolumeRecord& record) {
    SendRecord(RequestCode::MountVolume, record);
}

void RequestChannel::SendDismountVolume(VolumeRecord& record) {
    SendRecord(RequestCode::DismountVolume, record);
}

bool RequestChannel::IsSending() {
    return RequestTurn::IsAny();
}

void RequestChannel::SendCheckTimeouts() {
    Secret<RequestBlock> block;
    block->RequestCode = RequestCode::CheckTimeouts;
    SendRequest(target_, *block);
}

} // namespace quilla
