#include "app/command_line.h"

#include "platform/wipe.h"

#include <algorithm>

namespace quilla {

namespace {

constexpr TextUnit kBlank = QUILLA_TEXT(' ');
constexpr TextUnit kQuote = QUILLA_TEXT('"');
constexpr TextUnit kSlash = QUILLA_TEXT('/');

/// An option word and its value, either possibly empty; views into the command line, so that no copy of a
/// password is made.
struct Token {
    TextView option;
    TextView value;

    [[nodiscard]] bool IsEmpty() const { return option.empty() && value.empty(); }
    [[nodiscard]] bool Fits() const { return option.size() < kPathUnits && value.size() < kPathUnits; }
};

void SkipBlanks(TextView& text) {
    text.remove_prefix(std::min(text.find_first_not_of(kBlank), text.size()));
}

/// Takes everything up to a terminator off the front; the terminator stays.
TextView TakeUpTo(TextView& text, TextUnit terminator) {
    const TextView taken = text.substr(0, text.find(terminator));
    text.remove_prefix(taken.size());
    return taken;
}

Token ReadToken(TextView& text) {
    Token token;
    SkipBlanks(text);
    if (text.starts_with(kSlash)) {
        text.remove_prefix(1);
        token.option = TakeUpTo(text, kBlank);
    }
    SkipBlanks(text);
    if (!text.starts_with(kQuote)) {
        token.value = TakeUpTo(text, kBlank);
        return token;
    }
    text.remove_prefix(1);
    token.value = TakeUpTo(text, kQuote);
    if (!text.empty())
        text.remove_prefix(1);
    return token;
}

/// One of the four fields of a request and the option word that names it.
struct Field {
    TextView option;
    PathText CommandLineRequest::*text;
    bool CommandLineRequest::*isGiven;
};

constexpr Field kFields[] = {
    {QUILLA_TEXT("command"), &CommandLineRequest::command, &CommandLineRequest::hasCommand},
    {QUILLA_TEXT("volume"), &CommandLineRequest::volumePath, &CommandLineRequest::hasVolume},
    {QUILLA_TEXT("key"), &CommandLineRequest::keyPath, &CommandLineRequest::hasKey},
    {QUILLA_TEXT("password"), &CommandLineRequest::password, &CommandLineRequest::hasPassword},
};

/// Stores a token in the first free field that its option word allows.
bool StoreToken(CommandLineRequest& request, const Token& token) {
    Secret<PathText> option; // "/password:97531" is one word
    if (!token.Fits())
        return false;
    CopyText(*option, token.option);
    FoldToLower(std::span(*option).first(token.option.size()));
    for (const Field& field : kFields) {
        const bool isOffered = token.option.empty() || FieldText(*option) == field.option;
        if (!isOffered || request.*field.isGiven)
            continue;
        CopyText(request.*field.text, token.value);
        request.*field.isGiven = true;
        return true;
    }
    return false;
}

bool StoreTokens(CommandLineRequest& request, TextView text) {
    for (Token token = ReadToken(text); !token.IsEmpty(); token = ReadToken(text))
        if (!StoreToken(request, token))
            return false;
    return true;
}

} // namespace

bool IsEmptyCommandLine(const TextUnit* text) {
    return text == nullptr || *text == 0;
}

bool ParseCommandLine(CommandLineRequest& request, const TextUnit* commandLine) {
    for (const Field& field : kFields)
        request.*field.isGiven = false;
    if (!StoreTokens(request, commandLine != nullptr ? TextView(commandLine) : TextView()))
        return false;

    const bool isSingleWord =
        request.hasCommand && !request.hasVolume && !request.hasKey && !request.hasPassword;
    if (isSingleWord && FieldText(request.command) == kWakeUpCommand)
        return true;
    if (request.hasCommand)
        FoldToLower(std::span(request.command).first(FieldText(request.command).size()));
    if (isSingleWord) {
        CopyText(request.volumePath, FieldText(request.command));
        request.hasVolume = true;
        CopyText(request.command, kMountCommand);
    }
    if (!request.hasCommand || !request.hasVolume)
        return false;
    const TextView command = FieldText(request.command);
    return command == kMountCommand ||
           (command == kDismountCommand && !request.hasKey && !request.hasPassword);
}

} // namespace quilla
