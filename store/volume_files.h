#pragma once

#include "volume/key_file.h"
#include "volume/password_digest.h"
#include "volume/volume_record.h"

#include <cstddef>
#include <cstdint>
#include <span>

/// What happens to a volume's two files on the user's behalf. Failures are shown in a message box with the
/// file's path at once, unless stated otherwise.
namespace quilla {

/// What is known of a volume's key file. Only None and Missing, and a file that says so itself, make a volume
/// without a cipher; one that is there and cannot be used says nothing about the volume.
enum class KeyFileState : std::uint8_t {
    None,    ///< no key path
    Missing, ///< there is no such file
    Readable,
    Unreadable, ///< in use, cut, or of an unknown format
};

/// Takes a volume's cipher and time-out from its key file. A key file that cannot be opened makes, silently,
/// the record one of a volume without a key file: cipher none, KeyPath empty. The result tells why.
KeyFileState ReadKeyFileSummary(VolumeRecord& record);

/// Shows a failure with a key file's path; returns whether there was none.
bool ReportKeyFile(KeyFileStatus status, const wchar_t* keyPath);

/// Shows why a key file that was Unreadable cannot be used.
void ReportUnreadableKeyFile(const wchar_t* keyPath);

/// Reads the payload of the chunk with exactly this header; on a failure the payload keeps its content as far
/// as it was not read.
bool ReadChunk(const wchar_t* keyPath, const ChunkHeader& wanted, std::span<std::byte> payload);

/// Writes over the payload of the chunk with exactly this header.
bool RewriteChunk(const wchar_t* keyPath, const ChunkHeader& wanted, std::span<const std::byte> payload);

/// Creates a record's key file with a new master key under the password key.
bool WriteKeyFile(const VolumeRecord& record, const PasswordDigest& passwordKey);

/// Brings the time-out and flag bit 0 of a volume with a cipher into its key file. The settings are written
/// back even when they could not be read.
bool UpdateTimeout(const VolumeRecord& record);

/// Creates the volume file in its full size, silently, and, with a cipher, the key file; an existing file is
/// never touched, and of a creation that breaks off nothing is left.
bool BuildVolumeFiles(const VolumeRecord& record, const PasswordDigest& passwordKey);

/// Reads a volume's size (0 if the file is missing) and its key file summary; the volume counts as not
/// mounted afterwards.
KeyFileState ReadVolumeInfo(VolumeRecord& record);

/// Deletes the volume file and then the key file, silently; false if there was no key file to delete.
bool RemoveVolumeFiles(const VolumeRecord& record);

} // namespace quilla
