#include "bench/served_volume.h"

#include "platform/wipe.h"
#include "quilladriver/sector_cipher.h"
#include "quilladriver/sector_kernel.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

namespace quilla {
namespace {

constexpr std::size_t kKeyDigits = 2 * kDataKeySize;
using KeyText = std::array<char, kKeyDigits>;

int DigitValue(char digit) {
    constexpr char kDigits[] = "0123456789abcdef";
    const char* const found = digit == '\0' ? nullptr : std::strchr(kDigits, digit | 0x20);
    return found == nullptr ? -1 : static_cast<int>(found - kDigits);
}

bool ReadKeyText(const char* argument, KeyText& text) {
    if (argument[0] != '@') {
        if (std::strlen(argument) != text.size())
            return false;
        std::memcpy(text.data(), argument, text.size());
        return true;
    }
    const File file =
        File::Open(argument + 1, FileAccess::Read, FileSharing::Read, FileCreation::OpenExisting);
    return file.IsOpen() && file.ReadAt(0, std::as_writable_bytes(std::span(text))).bytes == text.size();
}

bool ParseKey(const char* argument, DataKey& key) {
    Secret<KeyText> text;
    if (!ReadKeyText(argument, *text))
        return false;
    for (std::size_t i = 0; i < key.size(); ++i) {
        const int high = DigitValue((*text)[2 * i]);
        const int low = DigitValue((*text)[2 * i + 1]);
        if (high < 0 || low < 0)
            return false;
        key[i] = static_cast<std::byte>(high << 4 | low);
    }
    return true;
}

/// Sets the cipher up that a number names, with the best kernel or with the one whose name begins as told.
bool SetUpCipher(SectorCipher& cipher, const char* argument, const DataKey& key) {
    char* end = nullptr;
    const auto id = static_cast<CipherId>(std::strtoul(argument, &end, 10));
    if (*end == '\0')
        return cipher.SetUp(id, key);
    const std::string_view wanted(end + 1);
    for (const SectorKernel* kernel : AllSectorKernels())
        if (kernel->cipher == id && std::string_view(kernel->name).starts_with(wanted) &&
            kernel->isSupported())
            return cipher.SetUp(*kernel, key);
    return false;
}

} // namespace

const char* OpenServedVolume(const char* path, const char* cipher, const char* key, VolumeDevice& device) {
    Secret<DataKey> bytes;
    if (!ParseKey(key, *bytes))
        return "the key is not 64 hexadecimal digits";
    SectorCipher sectors;
    if (!SetUpCipher(sectors, cipher, *bytes))
        return "no such cipher";
    File file = File::Open(path, FileAccess::ReadWrite, FileSharing::None, FileCreation::OpenExisting);
    return device.Open(std::move(file), std::move(sectors)) ? nullptr : "cannot open the volume";
}

} // namespace quilla
