#pragma once

#include "volume/volume_record.h"

namespace quilla {

/// Looks at the files of a volume before and after their creation has been asked for. The request tells
/// nothing of a volume file that could not be made, and makes the key file even then.
class CreationWatch {
  public:
    /// Looks before the request; the record keeps its paths until the end.
    void Begin(const VolumeRecord& record);

    /// Looks after the request. If no volume has been made, nothing that was made instead is left.
    void End(const VolumeRecord& record);

    [[nodiscard]] bool IsVolumeMade() const { return isVolumeMade_; }
    [[nodiscard]] bool IsKeyFileMade() const { return isKeyFileMade_; }

    /// Removes both files again; the reason has been told.
    void TakeBack(const VolumeRecord& record);

    /// Says why there is no new volume, unless that has been said about its key file already.
    void ShowFailure(const VolumeRecord& record) const;

  private:
    bool hadVolume_ = false;
    bool hadKeyFile_ = false;
    bool isVolumeMade_ = false;
    bool isKeyFileMade_ = false;
};

} // namespace quilla
