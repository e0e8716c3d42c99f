#pragma once

#include "volume/key_file.h"

namespace quilla {

/// The chunk as it stands in a file.
struct StrengthChunk {
    ChunkHeader header = kStrengthHeader;
    KeyStrength strength;
};
static_assert(sizeof(StrengthChunk) == 64);

/// Opens a key file: to read it beside others who do, or to write it alone. What a process that was killed in
/// a replacement has left beside it is removed.
[[nodiscard]] File OpenKeyFile(const PathUnit* path, FileAccess access);

/// Copies a key file whose chunks are whole to an empty file. The first key block under the header is
/// exchanged, chunks of strength are left out, and the given one, if any, comes last.
[[nodiscard]] KeyFileStatus CopyKeyFile(const File& from, const File& to, const ChunkHeader& keyHeader,
                                        const KeyBlock& block, const KeyStrength* strength);

/// Puts a new file in the place of a key file that is open alone, with the given key block in the chunk of
/// that header and the given strength or none; every other chunk is kept. Closes the file when that is done.
[[nodiscard]] KeyFileStatus ReplaceKeyBlock(const PathUnit* path, File& file, const ChunkHeader& keyHeader,
                                            const KeyBlock& block, const KeyStrength* strength);

} // namespace quilla
