#include "service/request_server.h"

#include "platform/clock.h"
#include "platform/error_box.h"
#include "platform/win32/handle.h"
#include "platform/wipe.h"
#include "service/window_messages.h"
#include "store/same_volume.h"
#include "store/volume_files.h"
#include "toolkit/controls.h"

#include <algorithm>
#include <commctrl.h>
#include <new>

namespace quilla {

namespace {

bool HasTimedOut(const VolumeRecord& record, std::uint64_t now) {
    return record.IsMounted() && IsTimeoutOver(record.Timeout, record.ActivityTime, now);
}

/// The request of another process, copied before it is looked at, since that process may change it at any
/// time.
void TakeRequest(const RequestBlock& shared, RequestBlock& request) {
    request = shared;
    request.Record.Path[kPathUnits - 1] = 0;
    request.Record.KeyPath[kPathUnits - 1] = 0;
}

/// Gives a sender its reply: a record of the list, which never leaves the server with a key in it.
void Reply(VolumeRecord& reply, const VolumeRecord& record) {
    reply = record;
    Wipe(reply.Key);
}

/// A data key belongs to a volume with a cipher, and a volume is one without a cipher only if its key file
/// says so or there is none. Anything else would let plain text into an enciphered volume.
bool MayMount(const ListedVolume& volume, const VolumeRecord& wanted) {
    const bool lacksCipher = volume.record.Cipher == CipherId::None &&
                             volume.keyFile != KeyFileState::Readable && wanted.Key != DataKey{};
    if (volume.keyFile != KeyFileState::Unreadable && !lacksCipher)
        return true;
    ReportUnreadableKeyFile(wanted.KeyPath);
    return false;
}

} // namespace

/// A stretch of work on the list: errors wait until it is over.
class RequestServer::Work {
  public:
    explicit Work(RequestServer& server) : server_(server) { ++server_.busy_; }
    ~Work() { --server_.busy_; }
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;

  private:
    ErrorHold hold_; // ends last
    RequestServer& server_;
};

RequestServer::RequestServer(BListView& list, DriverControl& driver, MountObserver& observer,
                             UINT sweepMilliseconds)
    : list_(list), driver_(driver), observer_(observer), sweepMilliseconds_(sweepMilliseconds) {}

LRESULT RequestServer::Serve() {
    const Work work(*this);
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
    return Perform(*request, shared.Record);
}

LRESULT RequestServer::Perform(const RequestBlock& request, VolumeRecord& reply) {
    switch (request.RequestCode) {
    case RequestCode::CreateVolumeFile:
        static_cast<void>(BuildVolumeFiles(request.Record, request.passwordDigest));
        return 0;
    case RequestCode::QueryVolume:
        return Query(request.Record, reply);
    case RequestCode::DeleteVolumeFiles:
        return Delete(request.Record);
    case RequestCode::MountVolume:
        return Mount(request.Record, reply);
    case RequestCode::DismountVolume:
        return DismountRequested(request.Record, reply);
    case RequestCode::CheckTimeouts:
        CheckTimeouts(kSenderPatience);
        return 0;
    }
    return 0; // an unknown code asks for nothing
}

/// The listed volume of a request; none for a request that names no volume, or without memory.
ListedVolume* RequestServer::Find(const VolumeRecord& wanted) {
    const int row = wanted.Path[0] != 0 ? FindVolume(list_, wanted.Path, wanted.KeyPath) : -1;
    return row >= 0 ? &ListedAt(list_, row) : nullptr;
}

LRESULT RequestServer::Query(const VolumeRecord& wanted, VolumeRecord& reply) {
    if (const ListedVolume* const volume = Find(wanted))
        Reply(reply, volume->record);
    return 0;
}

LRESULT RequestServer::Mount(const VolumeRecord& wanted, VolumeRecord& reply) {
    if (!CheckResult(!IsSameVolume(wanted.Path, wanted.KeyPath), L"A key file cannot be mounted as a volume"))
        return -1;
    ListedVolume* const volume = Find(wanted);
    if (volume == nullptr || volume->record.IsMounted())
        return -1;
    VolumeRecord& record = volume->record;
    if (MayMount(*volume, wanted)) {
        record.Timeout = wanted.Timeout;
        record.Flags = wanted.Flags;
        record.Key = record.Cipher != CipherId::None ? wanted.Key : DataKey{};
        driver_.LoadDriver(record);
        Wipe(record.Key);
    }
    UpdateVolumeRow(list_, RowOf(list_, record), record);
    Reply(reply, record);
    if (record.IsMounted()) {
        sweep_.Start(list_.hwnd, sweepMilliseconds_);
        observer_.OnVolumeMounted(record);
    }
    return 0;
}

LRESULT RequestServer::DismountRequested(const VolumeRecord& wanted, VolumeRecord& reply) {
    ListedVolume* const volume = Find(wanted);
    if (volume == nullptr || !volume->record.IsMounted())
        return -1;
    BeginDismount(volume->record, DismountReason::User);
    AwaitDismounts(kSenderPatience, &volume->record);
    Reply(reply, volume->record);
    return 0;
}

/// The files of a mounted volume stay: the driver has the one, and the other is the only way back to it.
LRESULT RequestServer::Delete(const VolumeRecord& wanted) {
    const int row = FindRow(list_, wanted.Path);
    if (row < 0 || !RecordAt(list_, row).IsMounted())
        static_cast<void>(RemoveVolumeFiles(wanted));
    return 0;
}

bool RequestServer::IsDismounting(const VolumeRecord& record) const {
    return std::ranges::any_of(detachments_, [&](const auto& detachment) {
        return detachment && !detachment->isFinished && &detachment->Record() == &record;
    });
}

void RequestServer::BeginDismount(VolumeRecord& record, DismountReason reason) {
    const auto free = std::ranges::find_if(detachments_, [](const auto& detachment) { return !detachment; });
    if (!IsDismounting(record) && free != detachments_.end())
        free->reset(new (std::nothrow) Detachment(record, reason, GetParent(list_.hwnd)));
}

/// Gives the disks, or that of one volume, some time, completes what is over and marks the rows of the
/// others. Requests that come meanwhile, through the waiting or through the notices, do the same; what they
/// complete stays in its place until nobody looks at it any more.
void RequestServer::AwaitDismounts(ULONGLONG patience, const VolumeRecord* awaited) {
    const Work work(*this);
    ++awaiting_;
    for (const auto& detachment : detachments_)
        if (detachment && (awaited == nullptr || awaited == &detachment->Record()))
            detachment->Await(patience);
    for (const auto& detachment : detachments_) {
        if (!detachment || detachment->isFinished)
            continue;
        if (detachment->IsOver())
            FinishDismount(*detachment);
        else
            MarkDismounting(detachment->Record(), true);
    }
    if (--awaiting_ > 0)
        return;
    for (auto& detachment : detachments_)
        if (detachment && detachment->isFinished)
            detachment.reset();
}

/// Other programs are told, and so served, in the middle of this.
void RequestServer::FinishDismount(Detachment& detachment) {
    detachment.isFinished = true;
    VolumeRecord& record = detachment.Record();
    driver_.UnloadDriver(record);
    MarkDismounting(record, false);
    if (!AnyVolumeMounted(list_))
        sweep_.Stop();
    observer_.OnVolumeDismounted(record, detachment.Reason(), detachment.Report());
}

void RequestServer::MarkDismounting(VolumeRecord& record, bool isDismounting) {
    const int row = RowOf(list_, record);
    ListedVolume& listed = ListedAt(list_, row);
    listed.isDismounting = isDismounting;
    if (!record.IsMounted())
        listed.drive = DriveState::None;
    UpdateVolumeRow(list_, row, record);
}

void RequestServer::FinishDismounts() {
    AwaitDismounts(0);
}

void RequestServer::DismountSelected() {
    const int row = SelectedRow(list_);
    if (row >= 0)
        Dismount(RecordAt(list_, row));
}

void RequestServer::Dismount(VolumeRecord& record) {
    BeginDismount(record, DismountReason::User);
    AwaitDismounts(kWindowPatience);
}

void RequestServer::DismountAll(ULONGLONG patience) {
    for (int row = ListView_GetItemCount(list_.hwnd) - 1; row >= 0; --row)
        if (RecordAt(list_, row).IsMounted())
            BeginDismount(RecordAt(list_, row), DismountReason::User);
    AwaitDismounts(patience);
}

void RequestServer::CheckTimeouts(ULONGLONG patience) {
    const std::uint64_t now = LocalFileTime();
    for (int row = ListView_GetItemCount(list_.hwnd) - 1; row >= 0; --row) {
        VolumeRecord& record = RecordAt(list_, row);
        driver_.QueryDriver(record);
        if (HasTimedOut(record, now))
            BeginDismount(record, DismountReason::Timeout);
    }
    AwaitDismounts(patience);
}

bool RequestServer::MayClose() const {
    return busy_ == 0 && !AnyVolumeMounted(list_);
}

void RequestServer::Sweep(void* server) {
    static_cast<RequestServer*>(server)->CheckTimeouts();
}

} // namespace quilla
