// The texts of the list: sizes, cipher names, and the key file that goes with a volume.

#include "store/default_key_path.h"
#include "store/display_text.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>

namespace quilla {
namespace {

using Text = std::basic_string<TextUnit>;

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
    const struct {
        std::uint64_t size;
        const char* text;
    } cases[] = {
        {0, "0 Bytes"},
        {99, "99 Bytes"},
        {999, "999 Bytes"},
        {1000, "1 KB"},
        {1074, "1 KB"},
        {1076, "1.1 KB"},
        {5000, "4.9 KB"},
        {102348, "99.9 KB"},
        {102349, "100 KB"},
        {999 * kKilo + 511, "999 KB"},
        {999 * kKilo + 512, "1 MB"},
        {1023 * kKilo, "1 MB"},
        {kMega, "1 MB"},
        {kMega * 3 / 2, "1.5 MB"},
        {1000 * kMega, "1 GB"},
        {kGiga + 53687091, "1 GB"},
        {kGiga + 53687092, "1.1 GB"},
        {1000 * kGiga, "1000 GB"},
        {5 * kKilo * kGiga, "5120 GB"},
    };
    for (const auto& [size, text] : cases)
        EXPECT_EQ(Formatted(size), text) << size;
    // The tenfold of these does not fit 64 bits: meaningless, but bounded.
    for (unsigned shift = 60; shift < 64; ++shift)
        EXPECT_LT(Formatted(~std::uint64_t{0} >> (63 - shift)).size(), kSizeTextUnits);
}

TEST(DisplayTextTest, NamesEveryCipher) {
    const char* const names[] = {"None",           "MDC/SHS - 1024", "MDC/SHA1 - 1024", "MDC/RIPM - 1024",
                                 "Blowfish - 448", "DES - 56",       "CAST - 128",      "TripleDES - 112",
                                 "Square - 128",   "SAFER - 128",    "Twofish - 256"};
    for (std::uint32_t id = 0; id < kCipherIdCount; ++id)
        EXPECT_EQ(Narrow(CipherName(static_cast<CipherId>(id))), names[id]);
}

std::string KeyPathOf(const Text& volumePath) {
    PathText keyPath;
    DefaultKeyPath(volumePath, keyPath);
    return Narrow(FieldText(keyPath));
}

TEST(DefaultKeyPathTest, ReplacesTheExtensionOfTheLastComponent) {
    EXPECT_EQ(KeyPathOf(QUILLA_TEXT("\\Storage\\Data.raw")), "\\Storage\\Data.key");
    EXPECT_EQ(KeyPathOf(QUILLA_TEXT("\\My.Files\\Data")), "\\My.Files\\Data.key");
    EXPECT_EQ(KeyPathOf(QUILLA_TEXT("X")), "X.key");
    EXPECT_EQ(KeyPathOf(QUILLA_TEXT("a.b.c")), "a.b.key");
    EXPECT_EQ(KeyPathOf(QUILLA_TEXT("dir\\.raw")), "dir\\.key");
    EXPECT_EQ(KeyPathOf(QUILLA_TEXT("dir.d\\")), "dir.d\\.key");
    EXPECT_EQ(KeyPathOf(QUILLA_TEXT("")), ".key");
    EXPECT_EQ(KeyPathOf(Text(255, QUILLA_TEXT('x'))), std::string(255, 'x') + ".key");
    EXPECT_EQ(KeyPathOf(Text(257, QUILLA_TEXT('x'))), std::string(257, 'x') + ".k");
    EXPECT_EQ(KeyPathOf(Text(400, QUILLA_TEXT('x'))), std::string(259, 'x'));
}

} // namespace
} // namespace quilla
