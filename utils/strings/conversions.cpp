// Conversions between option texts and numbers, booleans and GUIDs.

#include "utils/strings/conversions.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

bool IsSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

// True for a prefix that only some C libraries know: newer ones read "0b101" as 5. After a leading 0, only an x, an
// octal digit or the end of the text is accepted.
bool HasUnknownPrefix(const char* text) {
  while (IsSpace(*text)) ++text;
  if (*text == '-' || *text == '+') ++text;
  return text[0] == '0' && strchr("xX01234567", text[1]) == nullptr;  // strchr also finds the end
}

// `convert` is a function of the strtol family. On overflow it returns `lowest` or `highest`.
template <typename Number>
bool Convert(const char* text, Number* value, Number (*convert)(const char*, char**, int), Number lowest,
             Number highest) {
  if (text == nullptr || value == nullptr || HasUnknownPrefix(text)) return false;
  char* end = nullptr;
  errno = 0;
  const Number number = convert(text, &end, 0);
  if (errno == ERANGE && (number == lowest || number == highest)) return false;
  if (errno != 0 && number == 0) return false;
  if (end == text || *end != '\0') return false;
  *value = number;
  return true;
}

template <typename Number>
bool ConvertSigned(const char* text, Number* value, Number (*convert)(const char*, char**, int)) {
  return Convert(text, value, convert, std::numeric_limits<Number>::min(), std::numeric_limits<Number>::max());
}

template <typename Number>
bool ConvertUnsigned(const char* text, Number* value, Number (*convert)(const char*, char**, int)) {
  return Convert(text, value, convert, std::numeric_limits<Number>::max(), std::numeric_limits<Number>::max());
}

template <typename Narrow>
bool ConvertNarrow(const char* text, Narrow* value) {
  unsigned long long number = 0;
  if (!string_to_unsigned_long_long(text, &number) || number > std::numeric_limits<Narrow>::max()) return false;
  *value = static_cast<Narrow>(number);
  return true;
}

}  // namespace

bool string_to_long(const char* text, long* value) { return ConvertSigned(text, value, strtol); }
bool string_to_unsigned_long(const char* text, unsigned long* value) { return ConvertUnsigned(text, value, strtoul); }
bool string_to_long_long(const char* text, long long* value) { return ConvertSigned(text, value, strtoll); }
bool string_to_unsigned_long_long(const char* text, unsigned long long* value) {
  return ConvertUnsigned(text, value, strtoull);
}

bool string_to_sizet(const char* text, size_t* value) { return ConvertNarrow(text, value); }
bool string_to_u64(const char* text, uint64_t* value) { return ConvertNarrow(text, value); }
bool string_to_u32(const char* text, uint32_t* value) { return ConvertNarrow(text, value); }
bool string_to_u16(const char* text, uint16_t* value) { return ConvertNarrow(text, value); }
bool string_to_u8(const char* text, uint8_t* value) { return ConvertNarrow(text, value); }

bool string_to_boolean(const char* text) {
  if (text == nullptr) return true;
  return strcmp(text, "1") == 0 || strcmp(text, "True") == 0 || strcmp(text, "true") == 0;
}

const char* boolean_to_string(bool flag) { return flag ? "true" : "false"; }

char* trim_white_space(char* text) {
  while (IsSpace(*text)) ++text;
  if (*text == '\0') return text;
  char* last = text + strlen(text) - 1;
  while (last > text && IsSpace(*last)) --last;
  last[1] = '\0';
  return text;
}

int hex_char_to_int(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return -1;
}

bool string_to_guid(const char* text, uint8_t* guid) {
  constexpr size_t kGuidBytes = 16;
  if (text == nullptr) return false;
  size_t stored = 0;
  int held = -1;  // the first digit of a pair, until its second one comes
  for (; *text != '\0'; ++text) {
    if (*text == '-') continue;
    const int digit = hex_char_to_int(*text);
    if (digit == -1) return false;
    if (held == -1) {
      held = digit;
      continue;
    }
    if (stored == kGuidBytes) return false;
    guid[stored++] = static_cast<uint8_t>(held * 16 + digit);
    held = -1;
  }
  return stored == kGuidBytes && held == -1;
}
