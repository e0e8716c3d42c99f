#include "ui/desktop/attach_by_hand_dialog.h"

#include "platform/win32/format_text.h"
#include "platform/win32/handle.h"
#include "platform/wipe.h"
#include "service/driver_control.h"
#include "ui/clipboard.h"
#include "ui/dialog_support.h"
#include "ui/resource.h"

#include <array>
#include <cstring>
#include <string_view>

namespace quilla {

namespace {

/// The lines "key=value" of a mounted volume's target.
using KeyText = std::array<char, 512>;

bool ReadKeys(const VolumeRecord& record, KeyText& text) {
    PathText path;
    if (!DriverControl::FindDeviceFile(record, L"iscsi", path))
        return false;
    const UniqueFile file(CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD size = 0;
    return file && ReadFile(file.Get(), text.data(), static_cast<DWORD>(text.size()), &size, nullptr);
}

/// The value of a key in place, with a zero behind it instead of its line's end; empty if there is none.
const char* CutValue(KeyText& text, std::string_view key) {
    char* const found = std::strstr(text.data(), key.data());
    if (found == nullptr)
        return "";
    if (char* const end = std::strpbrk(found, "\r\n"))
        *end = '\0';
    return found + key.size();
}

} // namespace

AttachByHandDialog::AttachByHandDialog(const VolumeRecord& record) {
    Secret<KeyText> keys;
    if (!ReadKeys(record, *keys)) {
        CopyText(lines_, L"The file with the keys of this volume's target cannot be read.");
        return;
    }
    keys->back() = '\0';
    // From the last line to the first: each is cut off at its end.
    const char* const secret = CutValue(*keys, "secret=");
    const char* const user = CutValue(*keys, "user=");
    const char* const target = CutValue(*keys, "target=");
    const char* const port = CutValue(*keys, "port=");
    const char* const address = CutValue(*keys, "address=");
    FormatText(lines_,
               L"sc start MSiSCSI\r\n"
               L"iscsicli AddTargetPortal %hs %hs * * * * * * * * * %hs %hs 1\r\n"
               L"iscsicli LoginTarget %hs T %hs %hs * * * * * * * * * %hs %hs 1 * 0\r\n\r\n"
               L"rem Before the volume is dismounted, with the identifier that the next line shows:\r\n"
               L"iscsicli SessionList\r\n"
               L"iscsicli LogoutTarget IDENTIFIER\r\n"
               L"iscsicli RemoveTargetPortal %hs %hs\r\n",
               address, port, user, secret, target, address, port, user, secret, address, port);
}

AttachByHandDialog::~AttachByHandDialog() {
    Wipe(lines_);
}

void AttachByHandDialog::Attach(HWND handle) {
    BDialog::Attach(handle);
    FitDialog(hwnd, 0, {});
    SetDlgItemTextW(hwnd, IDC_BY_HAND_LINES, lines_);
}

LRESULT AttachByHandDialog::OnCommand(int id, int code, HWND control) {
    if (id != IDC_BY_HAND_COPY)
        return BDialog::OnCommand(id, code, control);
    CopyToClipboard(hwnd, lines_);
    return 0;
}

} // namespace quilla
