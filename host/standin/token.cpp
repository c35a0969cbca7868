// The text forms of a token.

#include "host/standin/token.h"

#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace standin {
namespace {

std::string PayloadText(const Token& token) {
  switch (token.type) {
    case kDouble: {
      const auto value = NumberIn<double>(token);
      return std::isfinite(value) ? nlohmann::json(value).dump() : std::to_string(value);
    }
    case kLong:
      return std::to_string(NumberIn<int64_t>(token));
    case kNewCollection:
      return std::to_string(NumberIn<uint64_t>(token));
    case kKeyName:
    case kString:
      return Quoted(token.payload);
    default:
      return token.payload.empty() ? "" : Quoted(token.payload);
  }
}

}  // namespace

const char* TypeName(uint32_t type) {
  static constexpr const char* kNames[] = {"key_name",   "string",   "double", "long", "dict_start",    "dict_end",
                                           "list_start", "list_end", "false",  "true", "new_collection"};
  return type < std::size(kNames) ? kNames[type] : "unknown";
}

// Escapes DEL and U+0080 to U+009F too: terminals act on them, but JSON allows them unescaped.
std::string Quoted(const std::string& text) {
  const std::string json = nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  std::string quoted;
  for (size_t i = 0; i < json.size(); ++i) {
    const bool two_bytes = json[i] == '\xC2' && static_cast<unsigned char>(json[i + 1]) < 0xA0;
    if (!two_bytes && json[i] != '\x7F') {
      quoted += json[i];
      continue;
    }
    if (two_bytes) ++i;
    char escape[7];
    snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(static_cast<unsigned char>(json[i])));
    quoted += escape;
  }
  return quoted;
}

std::string ToLine(const Token& token) {
  const std::string key_id = token.key_id == kNoKey ? "0xFFFFFFFF" : std::to_string(token.key_id);
  const std::string payload = PayloadText(token);
  return std::to_string(token.type) + ' ' + TypeName(token.type) + ' ' + key_id + (payload.empty() ? "" : " ") +
         payload;
}

}  // namespace standin
