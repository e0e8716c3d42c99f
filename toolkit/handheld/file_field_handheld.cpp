// A handheld is used with a pen, and its keyboard browses with Alt and an arrow.

#include "toolkit/file_field.h"

namespace quilla {

void FileField::NameParts() {}

void FileField::OfferButton() const {}

} // namespace quilla
