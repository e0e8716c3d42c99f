#pragma once

#include "linux/message.h"
#include "linux/password.h"
#include "platform/file.h"
#include "volume/key_file.h"
#include "volume/volume_record.h"

#include <cstdint>
#include <optional>
#include <string>

namespace quilla {

/// A volume as the command sees it: its files and what the key file tells without a password.
struct Volume {
    std::string path;    ///< absolute
    std::string keyPath; ///< absolute; empty = a volume without a cipher
    std::uint64_t size = 0;
    /// Names the data file in the runtime folder, by device and inode, whatever path leads to it.
    std::string id;
    VolumeRecord settings{}; ///< Cipher, Timeout, Flags
    bool isDevice = false;   ///< a block device
    bool isReadOnly = false; ///< the data file is on a read-only file system, or may not be written
};

/// The key file of a volume whose user says nothing else: the volume's name with its extension replaced.
[[nodiscard]] std::string DefaultKeyFile(const std::string& path);

/// The volume's name without folder and ".raw".
[[nodiscard]] std::string ShownName(const std::string& path);

/// The id of the file that a path leads to; empty if there is none.
[[nodiscard]] std::string FileId(const char* path);

/// Finds the data file, or the block device; tells what is wrong with it.
[[nodiscard]] ExitCode FindVolume(const char* path, Volume& volume);

/// Tells that there is no default key file for a device.
ExitCode FailWithoutKeyFile(const Volume& volume);

/// Reads the key file (null = the default one, which only a file has); a volume that is said to be plain has
/// none.
[[nodiscard]] ExitCode ReadKeyFile(const char* keyPath, bool isPlain, Volume& volume);

/// Both, one after the other.
[[nodiscard]] ExitCode FindVolumeAndKey(const char* path, const char* keyPath, bool isPlain, Volume& volume);

/// Tells what is wrong with a key file; Done for none.
[[nodiscard]] ExitCode ReportKeyFile(KeyFileStatus status, const std::string& keyPath);

/// Asks for the password and opens the key block; a volume without a cipher leaves the key zero.
/// The strength that the key file has, if any, is handed out for a change of the password.
[[nodiscard]] ExitCode UnlockVolume(const Volume& volume, PasswordSource& source, KeyBlock& block,
                                    std::optional<KeyStrength>* strength = nullptr);

/// Opens the data file alone, for reading only where that is all that is possible, and says so.
[[nodiscard]] ExitCode OpenDataFile(Volume& volume, bool readOnly, File& file);

[[nodiscard]] const char* CipherName(CipherId cipher);

/// False for a name of no cipher.
[[nodiscard]] bool CipherByName(const char* name, CipherId& cipher);

} // namespace quilla
