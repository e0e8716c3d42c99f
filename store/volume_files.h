#pragma once

#include "volume/key_file.h"
#include "volume/password_digest.h"
#include "volume/volume_record.h"

#include <cstddef>
#include <span>

/// What happens to a volume's two files on the user's behalf. Failures are shown in a message box with the
/// file's path at once, unless stated otherwise.
namespace quilla {

/// Takes a volume's cipher and time-out from its key file. A key file that cannot be opened means, silently,
/// a volume without one: the cipher becomes none and KeyPath empty.
bool ReadKeyFileSummary(VolumeRecord& record);

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
/// never touched.
bool BuildVolumeFiles(const VolumeRecord& record, const PasswordDigest& passwordKey);

/// Reads a volume's size (0 if the file is missing) and its key file summary; the volume counts as not
/// mounted afterwards.
void ReadVolumeInfo(VolumeRecord& record);

/// Deletes the volume file and then the key file, silently; false if there was no key file to delete.
bool RemoveVolumeFiles(const VolumeRecord& record);

} // namespace quilla
