// The texts of the list: sizes, cipher names, and the key file that goes with a volume.

#include "store/default_key_path.h"
#include "store/display_text.h"

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
    return Narrow(TextView(text, FormatSize(size, text)));
}

constexpr std::uint64_t kKilo = 1024;
constexpr std::uint64_t kGiga = kKilo * kKilo * kKilo;

TEST(DisplayTextTest, FormatsSizes) {
    const struct {
        std::uint64_t size;
        const char* text;
    } cases[] = {
        {0, "0 Bytes"},
        {999, "999 Bytes"},
        {1000, "1 KB"},
        {1075, "1 KB"},
        {1076, "1.1 KB"},
        {102348, "99.9 KB"},
        {102349, "100 KB"},
        {999 * kKilo + 511, "999 KB"},
        {999 * kKilo + 512, "1 MB"},
        {kGiga + 53687091, "1 GB"},
        {kGiga + 53687092, "1.1 GB"},
        {5 * kKilo * kGiga, "5120 GB"},
    };
    for (const auto& [size, text] : cases)
        EXPECT_EQ(Formatted(size), text) << size;
}

TEST(DefaultKeyPathTest, ReplacesTheExtensionOfTheLastComponent) {
    const std::string cases[][2] = {
        {"\\Storage\\Data.raw", "\\Storage\\Data.key"},
        {"\\My.Files\\Data", "\\My.Files\\Data.key"},
    };
    for (const auto& [volume, key] : cases) {
        PathText keyPath;
        DefaultKeyPath(Text(volume.begin(), volume.end()), keyPath);
        EXPECT_EQ(Narrow(FieldText(keyPath)), key);
    }
}

} // namespace
} // namespace quilla
