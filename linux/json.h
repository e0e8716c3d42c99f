#pragma once

#include <string>

namespace quilla {

/// Writes one JSON object field by field (RFC 8259).
class JsonObject {
  public:
    JsonObject& Text(const char* name, const std::string& value);
    JsonObject& Number(const char* name, unsigned long long value);
    JsonObject& Flag(const char* name, bool value);
    [[nodiscard]] std::string Close() const { return text_ + "}"; }

  private:
    void Name(const char* name);
    std::string text_ = "{";
};

} // namespace quilla
