// One token of the event stream, as the host's writer receives it.

#ifndef RUBRUF_HOST_STANDIN_TOKEN_H_
#define RUBRUF_HOST_STANDIN_TOKEN_H_

#include <cstdint>
#include <cstring>
#include <ostream>
#include <stdexcept>
#include <string>

#include "provider/tokens.h"

namespace standin {

// The token types under names in the style of this code.
enum TokenType : uint32_t {
  kKeyName = PYTHON_EVENT_KEY_NAME,
  kString = PYTHON_EVENT_STRING,
  kDouble = PYTHON_EVENT_DOUBLE,
  kLong = PYTHON_EVENT_LONG,
  kDictStart = PYTHON_EVENT_DICT_START,
  kDictEnd = PYTHON_EVENT_DICT_END,
  kListStart = PYTHON_EVENT_LIST_START,
  kListEnd = PYTHON_EVENT_LIST_END,
  kFalse = PYTHON_EVENT_FALSE,
  kTrue = PYTHON_EVENT_TRUE,
  kNewCollection = PYTHON_EVENT_NEW_COLLECTION
};

// The key ID of tokens that stand under no key.
constexpr uint32_t kNoKey = PYTHON_EVENT_NO_KEY;

struct Token {
  uint32_t type;  // a TokenType, or a number that the host does not know
  uint32_t key_id;
  std::string payload = {};

  // The number of bytes that the token takes in a buffer.
  size_t bytes() const { return 16 + payload.size(); }
};

inline bool operator==(const Token& a, const Token& b) {
  return a.type == b.type && a.key_id == b.key_id && a.payload == b.payload;
}

// Thrown for a token, or an order of tokens, that the host cannot read.
struct BrokenStream : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// A number as a payload: its bytes in host order.
template <class Number>
std::string PayloadOf(Number value) {
  return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

// The number in the token's payload. Throws BrokenStream if the payload has another size than the number.
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

// The token as a line without a line end: type, name of the type, key ID, payload. Throws as NumberIn.
std::string ToLine(const Token& token);

inline std::ostream& operator<<(std::ostream& out, const Token& token) { return out << ToLine(token); }

}  // namespace standin

#endif  // RUBRUF_HOST_STANDIN_TOKEN_H_
