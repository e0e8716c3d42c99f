#include "app/usage.h"

#include <windows.h>

namespace quilla {

void ShowUsage() {
    MessageBoxW(nullptr,
                L"Incorrect command line format\n\n"
                L"mount\t[/volume] VolumeFile.raw [/key KeyFile.key] [/password 97531]\n"
                L"dismount\t[/volume] VolumeFile.raw",
                L"Quilla Tarn", MB_ICONERROR);
}

} // namespace quilla
