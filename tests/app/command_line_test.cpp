// The command line: what each accepted form fills in, and that everything else is refused.
// fuzz/command_line_fuzz.cpp compares the parser with a model on any line.

#include "app/command_line.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace quilla {
namespace {

std::string Narrow(const PathText& field) {
    const TextView text = FieldText(field);
    return std::string(text.begin(), text.end());
}

/// What a line comes to, for example "mount volume=a.raw password=97531"; empty if it is refused. It is
/// parsed over a request full of rubbish, as a stack buffer would be.
std::string Parse(const std::string& line) {
    CommandLineRequest request;
    std::memset(&request, 0x5A, sizeof(request));
    const std::basic_string<TextUnit> text(line.begin(), line.end());
    if (!ParseCommandLine(request, text.c_str()))
        return "";
    std::string result = Narrow(request.command);
    if (request.hasVolume)
        result += " volume=" + Narrow(request.volumePath);
    if (request.hasKey)
        result += " key=" + Narrow(request.keyPath);
    if (request.hasPassword)
        result += " password=" + Narrow(request.password);
    return result;
}

TEST(CommandLineTest, TakesEveryFormApart) {
    const char* const lines[][2] = {
        {"AppRunAtTime", "AppRunAtTime"},
        {"apprunattime", "mount volume=apprunattime"},
        {"D:\\Vol.raw", "mount volume=d:\\vol.raw"},
        {"MOUNT /VOLUME \"\\My Card\\A.raw\" /Key B.Key /PassWord Geheim",
         "mount volume=\\My Card\\A.raw key=B.Key password=Geheim"},
        {"mount a.raw b.key 97531", "mount volume=a.raw key=b.key password=97531"},
        {"/volume a.raw dismount", "dismount volume=a.raw"},
        {"/command dismount a.raw", "dismount volume=a.raw"},
        {"mount a.raw /password", "mount volume=a.raw password="},
        {"\"mount\"\"a b\"\"k\"", "mount volume=a b key=k"}, // no blank is needed after a quoted value
        {"mount a.raw \"\" b.key", "mount volume=a.raw"},    // an empty word ends the line
        {"mount a.raw /pass 5", ""},
        {"mount /volume a.raw /volume b.raw", ""},
        {"dismount a.raw /key k.key", ""},
        {"dismount a.raw /password 5", ""},
    };
    for (const auto& [line, expected] : lines)
        EXPECT_EQ(Parse(line), expected) << line;
    EXPECT_TRUE(IsEmptyCommandLine(nullptr));
}

} // namespace
} // namespace quilla
