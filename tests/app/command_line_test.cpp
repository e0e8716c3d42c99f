// The command line: what each accepted form fills in, and that everything else is refused.

#include "app/command_line.h"

#include <cstring>
#include <gtest/gtest.h>
#include <optional>
#include <string>

namespace quilla {
namespace {

using Text = std::basic_string<TextUnit>;
using MaybeText = std::optional<Text>;

/// A well-formed request; a field that was not given is empty here.
struct Request {
    Text command;
    MaybeText volume;
    MaybeText key;
    MaybeText password;

    bool operator==(const Request&) const = default;
};

MaybeText FieldIf(bool isGiven, const PathText& field) {
    return isGiven ? MaybeText(FieldText(field)) : std::nullopt;
}

/// Parses a line over a request full of rubbish, as a stack buffer would be.
std::optional<Request> Parse(const Text& line) {
    CommandLineRequest parsed;
    std::memset(&parsed, 0x5A, sizeof(parsed));
    if (!ParseCommandLine(parsed, line.c_str()))
        return std::nullopt;
    EXPECT_TRUE(parsed.hasCommand);
    return Request{.command = Text(FieldText(parsed.command)),
                   .volume = FieldIf(parsed.hasVolume, parsed.volumePath),
                   .key = FieldIf(parsed.hasKey, parsed.keyPath),
                   .password = FieldIf(parsed.hasPassword, parsed.password)};
}

#define T(literal) Text(QUILLA_TEXT(literal))

struct Line {
    const char* what;
    Text text;
    std::optional<Request> expected;
};

const Line kLines[] = {
    {"wake-up word", T("AppRunAtTime"), Request{T("AppRunAtTime"), {}, {}, {}}},
    {"wake-up word by option", T("/command AppRunAtTime"), Request{T("AppRunAtTime"), {}, {}, {}}},
    {"wake-up word in lower case is a file", T("apprunattime"),
     Request{T("mount"), T("apprunattime"), {}, {}}},
    {"lone file is folded", T("D:\\Vol.raw"), Request{T("mount"), T("d:\\vol.raw"), {}, {}}},
    {"lone command word", T("mount"), Request{T("mount"), T("mount"), {}, {}}},
    {"full form", T("MOUNT /VOLUME \"\\My Card\\A.raw\" /Key B.Key /PassWord Geheim"),
     Request{T("mount"), T("\\My Card\\A.raw"), T("B.Key"), T("Geheim")}},
    {"positional form", T("mount a.raw b.key 97531"),
     Request{T("mount"), T("a.raw"), T("b.key"), T("97531")}},
    {"positional values fill what options left free", T("/key k /volume v Mount pw"),
     Request{T("mount"), T("v"), T("k"), T("pw")}},
    {"named option passes over the command", T("/volume a.raw dismount"),
     Request{T("dismount"), T("a.raw"), {}, {}}},
    {"empty password", T("mount a.raw /password"), Request{T("mount"), T("a.raw"), {}, T("")}},
    {"option value in quotes keeps slashes and blanks", T("mount a /password \"/key x\""),
     Request{T("mount"), T("a"), {}, T("/key x")}},
    {"no blank is needed after a quoted value", T("\"mount\"\"a b\"\"k\""),
     Request{T("mount"), T("a b"), T("k"), {}}},
    {"quote inside a value is kept", T("mount a\"b\"c"), Request{T("mount"), T("a\"b\"c"), {}, {}}},
    {"tab is an ordinary character", T("mount\ta"), Request{T("mount"), T("mount\ta"), {}, {}}},
    {"lone slash before a value is positional", T("mount / a.raw"), Request{T("mount"), T("a.raw"), {}, {}}},
    {"empty token ends the line", T("mount a.raw \"\" b.key"), Request{T("mount"), T("a.raw"), {}, {}}},
    {"empty", T(""), {}},
    {"lone slash", T("/"), {}},
    {"volume given twice", T("mount /volume a.raw /volume b.raw"), {}},
    {"unknown option", T("mount a.raw /size 5"), {}},
    {"fifth value", T("mount a.raw b.key pw extra"), {}},
    {"dismount with a key", T("dismount a.raw /key k.key"), {}},
    {"volume without command", T("/volume a.raw"), {}},
    {"mount without volume", T("mount /password p"), {}},
    {"abbreviated command", T("moun a.raw"), {}},
};

TEST(CommandLineTest, TakesEveryFormApart) {
    for (const Line& line : kLines)
        EXPECT_EQ(Parse(line.text), line.expected) << line.what;
}

TEST(CommandLineTest, RefusesWordsOfMoreThan259Units) {
    const Text longest(259, QUILLA_TEXT('x'));
    const Text tooLong(260, QUILLA_TEXT('x'));
    EXPECT_EQ(Parse(longest), (Request{T("mount"), longest, {}, {}}));
    EXPECT_EQ(Parse(T("mount ") + longest + T(" ") + longest + T(" \"") + longest + T("\"")),
              (Request{T("mount"), longest, longest, longest}));
    EXPECT_EQ(Parse(tooLong), std::nullopt);
    EXPECT_EQ(Parse(T("mount ") + tooLong), std::nullopt);
    EXPECT_EQ(Parse(T("mount a /password \"") + tooLong), std::nullopt);
    EXPECT_EQ(Parse(T("mount a /") + longest + T(" b")), std::nullopt);
    EXPECT_EQ(Parse(T("mount a /") + tooLong + T(" b")), std::nullopt);
    EXPECT_EQ(Parse(Text(100'000, QUILLA_TEXT('"'))), std::nullopt);
}

TEST(CommandLineTest, OnlyNothingIsEmpty) {
    EXPECT_TRUE(IsEmptyCommandLine(nullptr));
    EXPECT_TRUE(IsEmptyCommandLine(T("").c_str()));
    EXPECT_FALSE(IsEmptyCommandLine(T(" ").c_str()));
    CommandLineRequest request;
    EXPECT_FALSE(ParseCommandLine(request, nullptr));
    EXPECT_FALSE(request.hasCommand || request.hasVolume || request.hasKey || request.hasPassword);
}

} // namespace
} // namespace quilla
