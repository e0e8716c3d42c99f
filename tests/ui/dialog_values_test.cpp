// What the dialogs make of typed names and of numbers at the limits of their controls.

#include "ui/dialog_values.h"
#include "ui/file_name.h"

#include <gtest/gtest.h>
#include <string>

namespace quilla {
namespace {

using Text = std::basic_string<TextUnit>;

Text Complete(TextView typed, TextView extension = QUILLA_TEXT("raw")) {
    PathText name;
    CompleteFileName(typed, extension, name);
    return Text(FieldText(name));
}

Text Propose(TextView volumePath) {
    PathText keyPath;
    ProposeKeyPath(volumePath, keyPath);
    return Text(FieldText(keyPath));
}

TEST(FileName, IsCompleted) {
    struct {
        TextView typed;
        TextView completed;
    } const cases[] = {
        {QUILLA_TEXT(""), QUILLA_TEXT("")},
        {QUILLA_TEXT("vol1"), QUILLA_TEXT("\\vol1.raw")},
        {QUILLA_TEXT("\\vol1"), QUILLA_TEXT("\\vol1.raw")},
        {QUILLA_TEXT("\\"), QUILLA_TEXT("\\")},
        {QUILLA_TEXT("Data\\"), QUILLA_TEXT("\\Data\\")},
        {QUILLA_TEXT("\\Data\\v.x"), QUILLA_TEXT("\\Data\\v.x")},
        {QUILLA_TEXT("\\Data\\v."), QUILLA_TEXT("\\Data\\v.")},
        {QUILLA_TEXT("\\Data.dir\\vol"), QUILLA_TEXT("\\Data.dir\\vol.raw")},
        {QUILLA_TEXT("Data.dir\\vol"), QUILLA_TEXT("\\Data.dir\\vol.raw")},
        {QUILLA_TEXT(".hidden"), QUILLA_TEXT("\\.hidden")},
        {QUILLA_TEXT("C:\\vol"), QUILLA_TEXT("C:\\vol.raw")},
        {QUILLA_TEXT("C:\\"), QUILLA_TEXT("C:\\")},
        {QUILLA_TEXT("\\\\server\\share\\vol"), QUILLA_TEXT("\\\\server\\share\\vol.raw")},
        {QUILLA_TEXT("Пароль"), QUILLA_TEXT("\\Пароль.raw")},
    };
    for (const auto& c : cases)
        EXPECT_EQ(Complete(c.typed), c.completed);
    EXPECT_EQ(Complete(QUILLA_TEXT("vol1"), QUILLA_TEXT("key")), QUILLA_TEXT("\\vol1.key"));
}

TEST(FileName, StaysAsTypedWhenItsFullFormDoesNotFit) {
    const Text fits = QUILLA_TEXT("\\") + Text(kPathUnits - 6, QUILLA_TEXT('n')); // 255 units and ".raw"
    EXPECT_EQ(Complete(fits), fits + QUILLA_TEXT(".raw"));
    EXPECT_EQ(Complete(fits).size(), kPathUnits - 1);
    for (const std::size_t length : {256U, 258U, 259U}) {
        const Text name = QUILLA_TEXT("\\") + Text(length - 1, QUILLA_TEXT('n'));
        EXPECT_EQ(Complete(name), name) << length;
    }
    const Text relative(kPathUnits - 1, QUILLA_TEXT('n'));
    EXPECT_EQ(Complete(relative), relative);
}

TEST(FileName, BringsItsKeyFileAlong) {
    EXPECT_EQ(Propose(QUILLA_TEXT("")), QUILLA_TEXT(""));
    EXPECT_EQ(Propose(QUILLA_TEXT("\\Data\\")), QUILLA_TEXT("\\Data\\"));
    EXPECT_EQ(Propose(QUILLA_TEXT("\\vol1.raw")), QUILLA_TEXT("\\vol1.key"));
    EXPECT_EQ(Propose(QUILLA_TEXT("\\Data\\v.x")), QUILLA_TEXT("\\Data\\v.key"));
    EXPECT_EQ(Propose(QUILLA_TEXT("\\Data\\v.x.y")), QUILLA_TEXT("\\Data\\v.x.key"));
    EXPECT_EQ(Propose(QUILLA_TEXT("\\Data.dir\\vol")), QUILLA_TEXT("\\Data.dir\\vol.key"));
    EXPECT_EQ(Propose(QUILLA_TEXT("vol")), QUILLA_TEXT("vol.key"));
}

TEST(ShownSize, IsInTheLargestUnitThatDividesIt) {
    struct {
        std::uint64_t size;
        std::int16_t value;
        SizeUnit unit;
    } const cases[] = {
        {0, 0, SizeUnit::Gigabytes},
        {1, 0, SizeUnit::Kilobytes},
        {1536, 1, SizeUnit::Kilobytes},
        {1 << 20, 1, SizeUnit::Megabytes},
        {(1 << 20) + 1024, 1025, SizeUnit::Kilobytes},
        {std::uint64_t{2048} << 20, 2, SizeUnit::Gigabytes},
        {std::uint64_t{2049} << 20, 2049, SizeUnit::Megabytes},
        {std::uint64_t{32767} << 30, 32767, SizeUnit::Gigabytes},
        {std::uint64_t{32768} << 30, -32768, SizeUnit::Gigabytes}, // cut to 16 bits
        {(std::uint64_t{65537} << 20), 1, SizeUnit::Megabytes},
    };
    for (const auto& c : cases) {
        const ShownSize shown = ShowSize(c.size);
        EXPECT_EQ(shown.value, c.value) << c.size;
        EXPECT_EQ(shown.unit, c.unit) << c.size;
    }
}

TEST(ShownSize, MeansBytes) {
    EXPECT_EQ(SizeFromShown(2048, 1), std::uint64_t{2} << 30);
    EXPECT_EQ(SizeFromShown(32767, 2), std::uint64_t{32767} << 30);
    EXPECT_EQ(SizeFromShown(3, 0), 3072U);
    EXPECT_EQ(SizeFromShown(3, -1), 3072U); // no unit selected
    EXPECT_EQ(SizeFromShown(0, 2), 0U);
    EXPECT_EQ(SizeFromShown(-1, 0), ~std::uint64_t{0} << 10);
}

TEST(ShownTimeout, IsWholeMinutes) {
    EXPECT_EQ(ShowTimeout(0), 0);
    EXPECT_EQ(ShowTimeout(599'999'999), 0);
    EXPECT_EQ(ShowTimeout(18'000'000'000), 30);
    EXPECT_EQ(ShowTimeout(std::uint64_t{32767} * 600'000'000), 32767);
    EXPECT_EQ(ShowTimeout(std::uint64_t{65537} * 600'000'000), 1);
    EXPECT_EQ(ShowTimeout(~std::uint64_t{0}), static_cast<std::int16_t>(~std::uint64_t{0} / 600'000'000));
    EXPECT_EQ(TimeoutFromShown(30), 18'000'000'000U);
    EXPECT_EQ(TimeoutFromShown(0), 0U);
    EXPECT_EQ(TimeoutFromShown(32767), 19'660'200'000'000U);
    EXPECT_EQ(TimeoutFromShown(-1), ~std::uint64_t{0} - 599'999'999);
}

TEST(ShownCipher, IsOneOfThree) {
    EXPECT_EQ(ShowCipher(CipherId::None), 0);
    EXPECT_EQ(ShowCipher(CipherId::Twofish), 1);
    EXPECT_EQ(ShowCipher(CipherId::Cast128), 2);
    EXPECT_EQ(ShowCipher(static_cast<CipherId>(4)), 0);
    for (const int index : {0, 1, 2})
        EXPECT_EQ(ShowCipher(CipherFromShown(index)), index);
    EXPECT_EQ(static_cast<std::uint32_t>(CipherFromShown(-1)), 0xFFFFFFFFU);
}

} // namespace
} // namespace quilla
