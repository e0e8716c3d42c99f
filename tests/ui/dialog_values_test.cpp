// What the dialogs make of typed names and of numbers at the limits of their controls.

#include "ui/dialog_values.h"
#include "ui/file_name.h"

#include <gtest/gtest.h>
#include <string>

namespace quilla {
namespace {

using Text = std::basic_string<TextUnit>;

#define T(literal) Text(QUILLA_TEXT(literal))

Text Complete(const Text& typed) {
    PathText name;
    CompleteFileName(typed, QUILLA_TEXT("raw"), name);
    return Text(FieldText(name));
}

Text ProposeKey(const Text& volumePath) {
    PathText keyPath;
    ProposeKeyPath(volumePath, keyPath);
    return Text(FieldText(keyPath));
}

TEST(FileName, IsCompletedAndBringsItsKeyFileAlong) {
    const struct {
        Text typed;
        Text completed;
        Text key;
    } cases[] = {
        {T(""), T(""), T("")},
        {T("vol1"), T("\\vol1.raw"), T("\\vol1.key")},
        {T("Data\\"), T("\\Data\\"), T("\\Data\\")},
        {T("\\Data\\v.x.y"), T("\\Data\\v.x.y"), T("\\Data\\v.x.key")},
        {T("\\Data\\v."), T("\\Data\\v."), T("\\Data\\v.key")},
        {T("Data.dir\\vol"), T("\\Data.dir\\vol.raw"), T("\\Data.dir\\vol.key")},
        {T("C:/my.dir/vol"), T("C:\\my.dir\\vol.raw"), T("C:\\my.dir\\vol.key")},
        {T("/tmp/x"), T("\\tmp\\x.raw"), T("\\tmp\\x.key")},
        {T(".hidden"), T("\\.hidden"), T("\\.key")},
        {T("C:\\vol"), T("C:\\vol.raw"), T("C:\\vol.key")},
        {T("\\\\server\\share\\vol"), T("\\\\server\\share\\vol.raw"), T("\\\\server\\share\\vol.key")},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Complete(c.typed), c.completed);
        EXPECT_EQ(ProposeKey(c.completed), c.key);
    }
}

TEST(FileName, StaysAsTypedWhenItsFullFormDoesNotFit) {
    const Text fits = T("\\") + Text(kPathUnits - 6, QUILLA_TEXT('n')); // 255 units and ".raw"
    EXPECT_EQ(Complete(fits), fits + T(".raw"));
    const Text tooLong = fits + T("n");
    EXPECT_EQ(Complete(tooLong), tooLong);
    const Text relative(kPathUnits - 1, QUILLA_TEXT('n'));
    EXPECT_EQ(Complete(relative), relative);
}

TEST(ShownSize, IsInTheLargestUnitThatDividesIt) {
    const struct {
        std::uint64_t size;
        std::int16_t value;
        SizeUnit unit;
    } cases[] = {
        {0, 0, SizeUnit::Gigabytes},
        {1536, 1, SizeUnit::Kilobytes},
        {(1 << 20) + 1024, 1025, SizeUnit::Kilobytes},
        {std::uint64_t{2048} << 20, 2, SizeUnit::Gigabytes},
        {std::uint64_t{32768} << 30, -32768, SizeUnit::Gigabytes}, // cut to 16 bits
        {std::uint64_t{65537} << 20, 1, SizeUnit::Megabytes},
    };
    for (const auto& c : cases) {
        const ShownSize shown = ShowSize(c.size);
        EXPECT_EQ(shown.value, c.value) << c.size;
        EXPECT_EQ(shown.unit, c.unit) << c.size;
    }
    EXPECT_EQ(SizeFromShown(3, -1), 3072U) << "no unit selected";
    EXPECT_EQ(SizeFromShown(-1, 0), ~std::uint64_t{0} << 10);
}

TEST(ShownTimeout, IsWholeMinutes) {
    EXPECT_EQ(ShowTimeout(18'599'999'999), 30);
    EXPECT_EQ(ShowTimeout(std::uint64_t{65537} * 600'000'000), 1);
    EXPECT_EQ(TimeoutFromShown(32767), 19'660'200'000'000U);
    EXPECT_EQ(TimeoutFromShown(-1), ~std::uint64_t{0} - 599'999'999);
}

TEST(ShownCipher, IsOneOfThree) {
    const CipherId ciphers[] = {CipherId::None, CipherId::Twofish, CipherId::Cast128};
    for (const int index : {0, 1, 2}) {
        EXPECT_EQ(CipherFromShown(index), ciphers[index]);
        EXPECT_EQ(ShowCipher(ciphers[index]), index);
    }
    EXPECT_EQ(ShowCipher(static_cast<CipherId>(4)), 0);
    EXPECT_EQ(static_cast<std::uint32_t>(CipherFromShown(-1)), 0xFFFFFFFFU);
}

} // namespace
} // namespace quilla
