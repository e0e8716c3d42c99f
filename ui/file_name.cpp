#include "ui/file_name.h"

#include "store/default_key_path.h"

#include <algorithm>
#include <iterator>

namespace quilla {

namespace {

constexpr TextUnit kBackslash = QUILLA_TEXT('\\');
constexpr TextUnit kStop = QUILLA_TEXT('.');

bool NamesNoFile(TextView path) {
    return path.empty() || path.ends_with(kBackslash);
}

bool IsAbsolute(TextView path) {
    const bool hasDrive = path.size() > 1 && path[1] == QUILLA_TEXT(':');
    return path.starts_with(kBackslash) || hasDrive;
}

bool HasExtension(TextView path) {
    return FileNameIn(path).find(kStop) != TextView::npos;
}

/// Puts texts together; false, with the field cut, if they do not fit.
bool JoinText(PathText& field, std::initializer_list<TextView> parts) {
    std::size_t length = 0;
    for (const TextView part : parts)
        for (const TextUnit unit : part)
            if (length < kPathUnits - 1)
                field[length++] = unit;
            else
                return false;
    field[length] = 0;
    return true;
}

} // namespace

void CompleteFileName(TextView asTyped, TextView extension, PathText& name) {
    PathText separated;
    CopyText(separated, asTyped);
    std::replace(std::begin(separated), std::end(separated), QUILLA_TEXT('/'), kBackslash);
    const TextView typed = FieldText(separated);
    const TextView root = typed.empty() || IsAbsolute(typed) ? TextView() : TextView(QUILLA_TEXT("\\"));
    const bool isComplete = NamesNoFile(typed) || HasExtension(typed);
    const TextView stop = isComplete ? TextView() : TextView(QUILLA_TEXT("."));
    if (!JoinText(name, {root, typed, stop, isComplete ? TextView() : extension}))
        CopyText(name, typed);
}

TextView FileNameIn(TextView path) {
    return path.substr(path.rfind(kBackslash) + 1); // npos + 1 = 0: the whole name
}

void ProposeKeyPath(TextView volumePath, PathText& keyPath) {
    if (NamesNoFile(volumePath))
        CopyText(keyPath, volumePath);
    else
        DefaultKeyPath(volumePath, keyPath);
}

} // namespace quilla
