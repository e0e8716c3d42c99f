#include "linux/json.h"

#include <array>
#include <cstdio>

namespace quilla {

void JsonObject::Name(const char* name) {
    text_ += text_.size() > 1 ? ", \"" : "\"";
    text_ += name;
    text_ += "\": ";
}

JsonObject& JsonObject::Text(const char* name, const std::string& value) {
    Name(name);
    text_ += '"';
    for (const char c : value) {
        if (static_cast<unsigned char>(c) < 0x20) {
            std::array<char, 8> escape;
            std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(c));
            text_ += escape.data();
        } else {
            if (c == '"' || c == '\\')
                text_ += '\\';
            text_ += c;
        }
    }
    text_ += '"';
    return *this;
}

JsonObject& JsonObject::Number(const char* name, unsigned long long value) {
    Name(name);
    text_ += std::to_string(value);
    return *this;
}

JsonObject& JsonObject::Flag(const char* name, bool value) {
    Name(name);
    text_ += value ? "true" : "false";
    return *this;
}

} // namespace quilla
