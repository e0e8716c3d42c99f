#include "service/request_server.h"

#include "desktop/device_manager.h"
#include "platform/clock.h"
#include "platform/win32/handle.h"
#include "platform/wipe.h"
#include "service/window_messages.h"
#include "store/volume_files.h"
#include "toolkit/list_view.h"

#include <commctrl.h>

namespace quilla {

namespace {

/// How long before its end a time-out counts as run out (15 seconds): the wake-up that sweeps does not come
/// to the second.
constexpr std::uint64_t kTimeoutSlack = 150'000'000;
bool HasTimedOut(const VolumeRecord& record, std::uint64_t now) {
    return record.IsMounted() && record.Timeout != 0 &&
           record.Timeout + record.ActivityTime <= now + kTimeoutSlack;
}

/// The request of another process, copied before it is looked at, since that process may change it at any
/// time.
void TakeRequest(const RequestBlock& shared, RequestBlock& request) {
    request = shared;
    request.Record.Path[kPathUnits - 1] = 0;
    request.Record.KeyPath[kPathUnits - 1] = 0;
}

/// Marks a stretch of work on the list.
class BusyScope {
  public:
    explicit BusyScope(unsigned& depth) : depth_(depth) { ++depth_; }
    ~BusyScope() { --depth_; }
    BusyScope(const BusyScope&) = delete;
    BusyScope& operator=(const BusyScope&) = delete;

  private:
    unsigned& depth_;
};

} // namespace

RequestServer::RequestServer(BListView& list, DriverControl& driver, MountObserver& observer,
                             UINT sweepMilliseconds)
    : list_(list), driver_(driver), observer_(observer), sweepMilliseconds_(sweepMilliseconds) {}

LRESULT RequestServer::Serve() {
    const UniqueMapping mapping(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                                   kRequestMappingSize, kRequestMappingName));
    if (GetLastError() != ERROR_ALREADY_EXISTS)
        return 0; // nobody has written a request
    const UniqueView view(MapViewOfFile(mapping.Get(), FILE_MAP_WRITE, 0, 0, 0));
    if (!view)
        return 0;
    auto& shared = *static_cast<RequestBlock*>(view.Get());
    Secret<RequestBlock> request;
    TakeRequest(shared, *request);
    const BusyScope busy(busy_);
    return Perform(*request, shared.Record);
}

LRESULT RequestServer::Perform(const RequestBlock& request, VolumeRecord& reply) {
    switch (request.Code) {
    case RequestCode::CreateVolumeFile:
        static_cast<void>(BuildVolumeFiles(request.Record, request.passwordDigest));
        return 0;
    case RequestCode::QueryVolume:
        return Query(request.Record, reply);
    case RequestCode::DeleteVolumeFiles:
        static_cast<void>(RemoveVolumeFiles(request.Record));
        return 0;
    case RequestCode::MountVolume:
        return Mount(request.Record, reply);
    case RequestCode::DismountVolume:
        return DismountRequested(request.Record, reply);
    case RequestCode::CheckTimeouts:
        CheckTimeouts();
        return 0;
    }
    return 0; // an unknown code asks for nothing
}

RequestServer::Listed RequestServer::Find(const VolumeRecord& wanted) {
    const int row = FindVolume(list_, wanted.Path, wanted.KeyPath);
    return {.row = row, .record = row >= 0 ? &RecordAt(list_, row) : nullptr};
}

LRESULT RequestServer::Query(const VolumeRecord& wanted, VolumeRecord& reply) {
    if (const VolumeRecord* const record = Find(wanted).record)
        reply = *record;
    return 0;
}

LRESULT RequestServer::Mount(const VolumeRecord& wanted, VolumeRecord& reply) {
    VolumeRecord* const record = Find(wanted).record;
    if (record == nullptr || record->IsMounted())
        return -1;
    record->Timeout = wanted.Timeout;
    record->Flags = wanted.Flags;
    record->Key = wanted.Key;
    driver_.LoadDriver(*record);
    Wipe(record->Key);
    UpdateVolumeRow(list_, RowOf(list_, *record), *record);
    reply = *record;
    if (record->IsMounted())
        sweep_.Start(list_.hwnd, sweepMilliseconds_);
    return 0;
}

LRESULT RequestServer::DismountRequested(const VolumeRecord& wanted, VolumeRecord& reply) {
    const auto [row, record] = Find(wanted);
    if (record == nullptr || !record->IsMounted())
        return -1;
    Dismount(row, DismountReason::User);
    reply = *record;
    return 0;
}

void RequestServer::Dismount(int row, DismountReason reason) {
    VolumeRecord& record = RecordAt(list_, row);
    driver_.UnloadDriver(record);
    UpdateVolumeRow(list_, RowOf(list_, record), record);
    if (!AnyVolumeMounted(list_))
        sweep_.Stop();
    observer_.OnVolumeDismounted(record, reason, GetDeviceManager().TakeStopReport());
}

void RequestServer::DismountSelected() {
    const int row = SelectedRow(list_);
    if (row >= 0)
        Dismount(row, DismountReason::User);
}

void RequestServer::DismountAll() {
    for (int row = ListView_GetItemCount(list_.hwnd) - 1; row >= 0; --row)
        if (RecordAt(list_, row).IsMounted())
            Dismount(row, DismountReason::User);
}

void RequestServer::CheckTimeouts() {
    const std::uint64_t now = LocalFileTime();
    for (int row = ListView_GetItemCount(list_.hwnd) - 1; row >= 0; --row) {
        VolumeRecord& record = RecordAt(list_, row);
        driver_.QueryDriver(record);
        if (HasTimedOut(record, now))
            Dismount(row, DismountReason::Timeout);
    }
}

bool RequestServer::MayClose() const {
    return busy_ == 0 && !AnyVolumeMounted(list_);
}

void RequestServer::Sweep(void* server) {
    static_cast<RequestServer*>(server)->CheckTimeouts();
}

} // namespace quilla
