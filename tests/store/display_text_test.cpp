// The texts of the list: sizes, cipher names, and the key file that goes with a volume.

#include "store/default_key_path.h"
#include "store/display_text.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <limits>
#include <string>

namespace quilla {
namespace {

std::string Narrow(TextView text) {
    return std::string(text.begin(), text.end());
}

std::string Formatted(std::uint64_t size) {
    SizeText text;
    std::fill(std::begin(text), std::end(text), TextUnit{0x5A5A});
    const std::size_t length = FormatSize(size, text);
    EXPECT_EQ(length, FieldText(text).size()) << size;
    return Narrow(FieldText(text));
}

constexpr std::uint64_t kKilo = 1024;
constexpr std::uint64_t kMega = kKilo * kKilo;
constexpr std::uint64_t kGiga = kMega * kKilo;

TEST(DisplayTextTest, FormatsSizes) {
    struct {
        std::uint64_t size;
        const char* text;
    } const cases[] = {
        {0, "0 Bytes"},
        {99, "99 Bytes"},
        {100, "100 Bytes"},
        {999, "999 Bytes"},
        {1000, "1 KB"},
        {1023, "1 KB"},
        {1074, "1 KB"},
        {1076, "1.1 KB"},
        {1100, "1.1 KB"},
        {5000, "4.9 KB"},
        {102348, "99.9 KB"},
        {102349, "100 KB"},
        {100 * kKilo, "100 KB"},
        {999 * kKilo, "999 KB"},
        {999 * kKilo + 511, "999 KB"},
        {999 * kKilo + 512, "1 MB"},
        {1023 * kKilo, "1 MB"},
        {kMega, "1 MB"},
        {kMega * 3 / 2, "1.5 MB"},
        {999 * kMega, "999 MB"},
        {1000 * kMega, "1 GB"},
        {kGiga, "1 GB"},
        {kGiga + 53687091, "1 GB"},
        {kGiga + 53687092, "1.1 GB"},
        {99 * kGiga + kGiga / 2, "99.5 GB"},
        {1000 * kGiga, "1000 GB"},
        {5 * kKilo * kGiga, "5120 GB"},
        {(std::uint64_t{1} << 60), "1073741824 GB"},
    };
    for (const auto& [size, text] : cases)
        EXPECT_EQ(Formatted(size), text) << size;
}

/// Sizes whose tenfold does not fit 64 bits are formatted from what is left of it: meaningless, but bounded.
TEST(DisplayTextTest, StaysInsideTheBufferForAnySize) {
    for (unsigned shift = 0; shift < 64; ++shift)
        for (const std::uint64_t near : {std::uint64_t{0} - 1, std::uint64_t{0}, std::uint64_t{1}})
            EXPECT_LT(Formatted((std::uint64_t{1} << shift) + near).size(), kSizeTextUnits);
    EXPECT_LT(Formatted(std::numeric_limits<std::uint64_t>::max()).size(), kSizeTextUnits);
}

TEST(DisplayTextTest, NamesEveryCipher) {
    const char* const names[] = {"None",           "MDC/SHS - 1024", "MDC/SHA1 - 1024", "MDC/RIPM - 1024",
                                 "Blowfish - 448", "DES - 56",       "CAST - 128",      "TripleDES - 112",
                                 "Square - 128",   "SAFER - 128",    "Twofish - 256"};
    static_assert(std::size(names) == kCipherIdCount);
    for (std::uint32_t id = 0; id < kCipherIdCount; ++id)
        EXPECT_EQ(Narrow(CipherName(static_cast<CipherId>(id))), names[id]);
}

std::string KeyPathOf(const std::basic_string<TextUnit>& volumePath) {
    PathText keyPath;
    DefaultKeyPath(volumePath, keyPath);
    return Narrow(FieldText(keyPath));
}

#define T(literal) std::basic_string<TextUnit>(QUILLA_TEXT(literal))

TEST(DefaultKeyPathTest, ReplacesTheExtensionOfTheLastComponent) {
    EXPECT_EQ(KeyPathOf(T("\\Storage\\Data.raw")), "\\Storage\\Data.key");
    EXPECT_EQ(KeyPathOf(T("\\Storage\\Data")), "\\Storage\\Data.key");
    EXPECT_EQ(KeyPathOf(T("\\My.Files\\Data")), "\\My.Files\\Data.key");
    EXPECT_EQ(KeyPathOf(T("D.d\\X")), "D.d\\X.key");
    EXPECT_EQ(KeyPathOf(T("X.raw")), "X.key");
    EXPECT_EQ(KeyPathOf(T("X")), "X.key");
    EXPECT_EQ(KeyPathOf(T("a.b.c")), "a.b.key");
    EXPECT_EQ(KeyPathOf(T("dir\\.raw")), "dir\\.key");
    EXPECT_EQ(KeyPathOf(T("dir.d\\")), "dir.d\\.key");
    EXPECT_EQ(KeyPathOf(T("")), ".key");
}

TEST(DefaultKeyPathTest, IsCutToTheField) {
    EXPECT_EQ(KeyPathOf(std::basic_string<TextUnit>(255, TextUnit{'x'})), std::string(255, 'x') + ".key");
    EXPECT_EQ(KeyPathOf(std::basic_string<TextUnit>(257, TextUnit{'x'})), std::string(257, 'x') + ".k");
    EXPECT_EQ(KeyPathOf(std::basic_string<TextUnit>(400, TextUnit{'x'})), std::string(259, 'x'));
}

} // namespace
} // namespace quilla
