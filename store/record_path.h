#pragma once

#include "platform/text.h"

namespace quilla {

/// A record's path as the platform wants it: terminated, whatever the record's field holds.
struct RecordPath {
    explicit RecordPath(const PathText& field) { CopyText(text, FieldText(field)); }
    PathText text;
};

} // namespace quilla
