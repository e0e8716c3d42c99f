// Arbitrary command lines, taken apart by the parser and by a slow model that goes unit by unit. A byte of
// the input is a unit of the text; 0xFF introduces a unit of two bytes.

#include "app/command_line.h"
#include "fuzz/require.h"

#include <cstdint>
#include <cstring>
#include <map>
#include <string>

namespace {

using quilla::CommandLineRequest;
using quilla::fuzz::Require;
using Text = std::basic_string<quilla::TextUnit>;

Text TextOf(const std::uint8_t* data, std::size_t size) {
    Text text;
    for (std::size_t i = 0; i < size; ++i) {
        if (data[i] == 0xFF && i + 2 < size) {
            text.push_back(static_cast<quilla::TextUnit>(data[i + 1] | data[i + 2] << 8));
            i += 2;
        } else {
            text.push_back(data[i]);
        }
    }
    return text;
}

Text Lower(Text text) {
    for (auto& unit : text)
        if ((unit >= u'A' && unit <= u'Z') || (unit >= 0xC0 && unit <= 0xDE && unit != 0xD7))
            unit = static_cast<quilla::TextUnit>(unit + 0x20);
    return text;
}

/// The rules as they are written down for users, one unit at a time.
class Model {
  public:
    explicit Model(const Text& line) : line_(line.c_str()) { isWellFormed_ = Parse(); }

    [[nodiscard]] bool IsWellFormed() const { return isWellFormed_; }
    [[nodiscard]] const std::map<Text, Text>& Fields() const { return fields_; }

  private:
    [[nodiscard]] bool AtEnd() const { return at_ == line_.size(); }
    [[nodiscard]] bool At(quilla::TextUnit unit) const { return !AtEnd() && line_[at_] == unit; }
    void SkipBlanks() {
        while (At(u' '))
            ++at_;
    }
    Text Until(quilla::TextUnit end) {
        Text taken;
        while (!AtEnd() && !At(end))
            taken.push_back(line_[at_++]);
        return taken;
    }

    bool Parse() {
        for (;;) {
            Text option;
            Text value;
            SkipBlanks();
            if (At(u'/')) {
                ++at_;
                option = Until(u' ');
            }
            SkipBlanks();
            if (At(u'"')) {
                ++at_;
                value = Until(u'"');
                if (!AtEnd())
                    ++at_;
            } else {
                value = Until(u' ');
            }
            if (option.empty() && value.empty())
                return IsComplete();
            if (option.size() > 259 || value.size() > 259 || !Store(Lower(option), value))
                return false;
        }
    }

    bool Store(const Text& option, const Text& value) {
        for (const char16_t* name : {u"command", u"volume", u"key", u"password"})
            if (!fields_.contains(name) && (option.empty() || option == name)) {
                fields_[name] = value;
                return true;
            }
        return false;
    }

    bool IsComplete() {
        const bool isSingle = fields_.size() == 1 && fields_.contains(u"command");
        if (isSingle && fields_[u"command"] == u"AppRunAtTime")
            return true;
        if (fields_.contains(u"command"))
            fields_[u"command"] = Lower(fields_[u"command"]);
        if (isSingle) {
            fields_[u"volume"] = fields_[u"command"];
            fields_[u"command"] = u"mount";
        }
        if (!fields_.contains(u"command") || !fields_.contains(u"volume"))
            return false;
        if (fields_[u"command"] == u"mount")
            return true;
        return fields_[u"command"] == u"dismount" && !fields_.contains(u"key") &&
               !fields_.contains(u"password");
    }

    const Text line_; // up to the first zero
    std::size_t at_ = 0;
    std::map<Text, Text> fields_;
    bool isWellFormed_ = false;
};

void RequireField(const Model& model, const char16_t* name, bool isGiven, const quilla::PathText& text) {
    const auto field = model.Fields().find(name);
    Require(isGiven == (field != model.Fields().end()));
    Require(!isGiven || quilla::FieldText(text) == field->second);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Text line = TextOf(data, size);
    CommandLineRequest request;
    std::memset(&request, 0x5A, sizeof(request));
    const bool isWellFormed = quilla::ParseCommandLine(request, line.c_str());
    const Model model(line);
    Require(isWellFormed == model.IsWellFormed());
    Require(quilla::IsEmptyCommandLine(line.c_str()) == (line.empty() || line[0] == 0));
    if (isWellFormed) {
        RequireField(model, u"command", request.hasCommand, request.command);
        RequireField(model, u"volume", request.hasVolume, request.volumePath);
        RequireField(model, u"key", request.hasKey, request.keyPath);
        RequireField(model, u"password", request.hasPassword, request.password);
    }
    return 0;
}
