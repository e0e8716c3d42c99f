#pragma once

#include "platform/text.h"
#include "volume/password_digest.h"

#include <windows.h>

namespace quilla {

/// Makes an edit ready for a password: bounds its text and lets its buffers grow to their full size now, so
/// that typing never moves a part of the password to other memory.
void PrepareSecretEdit(HWND edit);

/// Makes the password key of an edit's text; no other copy of either is left.
void TakePasswordKey(HWND edit, PasswordDigest& key);

/// Whether two edits hold the same text, compared unit by unit.
[[nodiscard]] bool HaveSameText(HWND one, HWND other);

/// Overwrites the memory in which an edit keeps its text and what can be undone, and empties the edit.
void WipeSecretEdit(HWND edit);

} // namespace quilla
