#pragma once

#include <span>
#include <string_view>
#include <vector>

namespace quilla {

/// An option that a subcommand knows, without its dashes.
struct Option {
    std::string_view name;
    bool hasValue = false;
};

/// The words of a subcommand's line, sorted into options and operands. "--name value" and "--name=value" mean
/// the same; "--" ends the options; "-" is an operand or a value.
class Arguments {
  public:
    /// False, after a line that tells why, for an option that is not known or lacks its value.
    [[nodiscard]] bool Parse(std::span<char* const> words, std::span<const Option> known);

    [[nodiscard]] bool Has(std::string_view name) const { return Find(name) != nullptr; }

    /// The value of an option, or the default where it was not given.
    [[nodiscard]] const char* Value(std::string_view name, const char* otherwise = nullptr) const;

    [[nodiscard]] const std::vector<const char*>& Operands() const { return operands_; }

  private:
    struct Given {
        std::string_view name;
        const char* value;
    };
    [[nodiscard]] const Given* Find(std::string_view name) const;

    std::vector<Given> given_;
    std::vector<const char*> operands_;
};

} // namespace quilla
