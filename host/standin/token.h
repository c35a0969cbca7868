// One token of the event stream, as the host's writer receives it.

#ifndef RUBRUF_HOST_STANDIN_TOKEN_H_
#define RUBRUF_HOST_STANDIN_TOKEN_H_

#include <cstdint>
#include <cstring>
#include <ostream>
#include <stdexcept>
#include <string>

namespace standin {

enum TokenType : uint32_t {
  kKeyName = 0,
  kString = 1,
  kDouble = 2,
  kLong = 3,
  kDictStart = 4,
  kDictEnd = 5,
  kListStart = 6,
  kListEnd = 7,
  kFalse = 8,
  kTrue = 9,
  kNewCollection = 10
};

// The key ID of what stands under no key.
constexpr uint32_t kNoKey = 0xFFFFFFFF;

struct Token {
  uint32_t type;  // a TokenType, or a number that the host does not know
  uint32_t key_id;
  std::string payload = {};

  // The room that the token takes in a buffer.
  size_t bytes() const { return 16 + payload.size(); }
};

inline bool operator==(const Token& a, const Token& b) {
  return a.type == b.type && a.key_id == b.key_id && a.payload == b.payload;
}

// A token, or an order of tokens, that the host cannot read.
struct BrokenStream : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The payload of a number: its bytes in host order.
template <class Number>
std::string PayloadOf(Number value) {
  return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

// The number in a payload. Throws BrokenStream when the size is not the number's.
template <class Number>
Number NumberIn(const Token& token) {
  Number value;
  if (token.payload.size() != sizeof value) {
    throw BrokenStream("a number of " + std::to_string(token.payload.size()) + " bytes");
  }
  std::memcpy(&value, token.payload.data(), sizeof value);
  return value;
}

// "dict_start" and so on; "unknown" for another number.
const char* TypeName(uint32_t type);

// `text` (UTF-8) in quotes, escaped as JSON asks.
std::string Quoted(const std::string& text);

// One line, without its end: type, name of the type, key ID, payload. Throws as NumberIn.
std::string ToLine(const Token& token);

inline std::ostream& operator<<(std::ostream& out, const Token& token) { return out << ToLine(token); }

}  // namespace standin

#endif  // RUBRUF_HOST_STANDIN_TOKEN_H_
