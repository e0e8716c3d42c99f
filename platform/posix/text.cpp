#include "platform/text.h"

namespace quilla {

void FoldToLower(std::span<TextUnit> text) {
    // Latin letters suffice where no user interface exists; the platform's own tables serve on Windows.
    for (TextUnit& unit : text) {
        const bool ascii = unit >= u'A' && unit <= u'Z';
        const bool latin1 = unit >= 0xC0 && unit <= 0xDE && unit != 0xD7;
        if (ascii || latin1)
            unit = static_cast<TextUnit>(unit + 0x20);
    }
}

} // namespace quilla
