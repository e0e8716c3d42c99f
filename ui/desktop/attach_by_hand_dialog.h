#pragma once

#include "toolkit/dialog.h"
#include "volume/volume_record.h"

namespace quilla {

/// How a user makes a drive of a mounted volume himself, where the program cannot: the lines to type, with
/// the values of this mount, to copy.
class AttachByHandDialog final : public BDialog {
  public:
    /// The record must be that of a mounted volume; it is looked at here only.
    explicit AttachByHandDialog(const VolumeRecord& record);
    ~AttachByHandDialog();
    AttachByHandDialog(const AttachByHandDialog&) = delete;
    AttachByHandDialog& operator=(const AttachByHandDialog&) = delete;

    void Attach(HWND handle) override;
    LRESULT OnCommand(int id, int code, HWND control) override;

  private:
    wchar_t lines_[1200] = {};
};

} // namespace quilla
