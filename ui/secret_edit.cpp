#include "ui/secret_edit.h"

#include "platform/wipe.h"
#include "volume/sha1.h"

#include <algorithm>
#include <iterator>

namespace quilla {

namespace {

/// Fills an edit's text and its undo memory with blanks in their full length and empties both.
void Overwrite(HWND edit) {
    PathText blanks;
    std::fill(std::begin(blanks), std::end(blanks) - 1, L' ');
    blanks[std::size(blanks) - 1] = 0;
    SetWindowTextW(edit, blanks);
    // What a replacement replaces can be undone: the second one fills that memory with blanks, too.
    for (int i = 0; i < 2; ++i) {
        SendMessageW(edit, EM_SETSEL, 0, -1);
        SendMessageW(edit, EM_REPLACESEL, TRUE, reinterpret_cast<LPARAM>(blanks));
    }
    SetWindowTextW(edit, L"");
    SendMessageW(edit, EM_EMPTYUNDOBUFFER, 0, 0);
    SendMessageW(edit, EM_SETMODIFY, FALSE, 0);
}

} // namespace

void PrepareSecretEdit(HWND edit) {
    SendMessageW(edit, EM_SETLIMITTEXT, kPathUnits - 1, 0);
    Overwrite(edit);
}

void TakePasswordKey(HWND edit, PasswordDigest& key) {
    Secret<PathText> text;
    GetWindowTextW(edit, *text, kPathUnits);
    PasswordKey(key, FieldText(*text));
}

bool HaveSameText(HWND one, HWND other) {
    Secret<PathText> text;
    Secret<PathText> otherText;
    GetWindowTextW(one, *text, kPathUnits);
    GetWindowTextW(other, *otherText, kPathUnits);
    return FieldText(*text) == FieldText(*otherText);
}

void WipeSecretEdit(HWND edit) {
    Overwrite(edit);
}

} // namespace quilla
