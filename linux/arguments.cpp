#include "linux/arguments.h"

#include "linux/message.h"

#include <algorithm>

namespace quilla {

bool Arguments::Parse(std::span<char* const> words, std::span<const Option> known) {
    bool areOptions = true;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string_view word(words[i]);
        if (areOptions && word == "--") {
            areOptions = false;
            continue;
        }
        if (!areOptions || !word.starts_with("--")) {
            if (areOptions && word.size() > 1 && word.starts_with('-')) {
                Warn("unknown option %s", words[i]);
                return false;
            }
            operands_.push_back(words[i]);
            continue;
        }
        const std::size_t equals = word.find('=');
        const std::string_view name = word.substr(2, equals == word.npos ? equals : equals - 2);
        const auto option = std::ranges::find(known, name, &Option::name);
        const bool hasValue = equals != word.npos;
        if (option == known.end() || (hasValue && !option->hasValue)) {
            Warn("unknown option %s", words[i]);
            return false;
        }
        if (!option->hasValue)
            given_.push_back({.name = option->name, .value = ""});
        else if (hasValue)
            given_.push_back({.name = option->name, .value = words[i] + equals + 1});
        else if (i + 1 < words.size())
            given_.push_back({.name = option->name, .value = words[++i]});
        else {
            Warn("option %s needs a value", words[i]);
            return false;
        }
    }
    return true;
}

const Arguments::Given* Arguments::Find(std::string_view name) const {
    const auto found = std::ranges::find(given_, name, &Given::name);
    return found == given_.end() ? nullptr : &*found;
}

const char* Arguments::Value(std::string_view name, const char* otherwise) const {
    const Given* const given = Find(name);
    return given == nullptr ? otherwise : given->value;
}

} // namespace quilla
