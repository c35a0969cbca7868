// Fuzz target: conversions of one text, against readings of it that use neither them nor the strtol family.

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <limits>
#include <memory>

#include "fuzz/expect.h"
#include "utils/strings/conversions.h"
#include "utils/strings/templates.h"

namespace {

using fuzz::Expect, fuzz::ExpectEqual;

constexpr char kBlanks[] = " \t\n\v\f\r";

struct Number {
  bool negative;
  uint64_t magnitude;
};

// White space, a sign, and digits to the end of the text, in the base that their prefix names.
std::optional<Number> Parse(const std::string& text) {
  size_t at = std::min(text.find_first_not_of(kBlanks), text.size());
  Number number{text[at] == '-', 0};
  if (text[at] == '-' || text[at] == '+') ++at;
  int base = 10;
  if (text[at] == '0') {
    const bool is_hexadecimal = text[at + 1] == 'x' || text[at + 1] == 'X';
    base = is_hexadecimal ? 16 : 8;
    at += is_hexadecimal ? 2 : 0;
  }
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data() + at, end, number.magnitude, base);
  return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

template <typename T>
std::optional<T> In(const std::optional<Number>& number) {
  if (!number) return std::nullopt;
  const uint64_t value = number->negative ? -number->magnitude : number->magnitude;
  if constexpr (std::is_signed_v<T>) {
    if (number->magnitude > uint64_t{INT64_MAX} + number->negative) return std::nullopt;
  } else {
    if (value > std::numeric_limits<T>::max()) return std::nullopt;
  }
  return static_cast<T>(value);
}

template <typename T>
void CheckNumber(bool (*convert)(const char*, T*), const std::string& text, const std::string& what) {
  constexpr T kPreset = 77;
  T values[] = {kPreset, kPreset, kPreset};
  Expect(!convert(nullptr, &values[1]) && values[1] == kPreset, "no text is no number");
  errno = ERANGE;  // left over from somewhere else
  const bool success = convert(text.c_str(), &values[1]);
  Expect(values[0] == kPreset && values[2] == kPreset, "a conversion writes its value and nothing else");
  Expect(success || values[1] == kPreset, "a conversion that fails leaves the value alone");
  ExpectEqual(success ? std::optional(values[1]) : std::nullopt, In<T>(Parse(text)), what + text);
}

void CheckTrimming(const std::string& text) {
  std::string expected = text;
  const size_t begin = std::min(text.find_first_not_of(kBlanks), text.size());
  const size_t last = text.find_last_not_of(kBlanks);
  if (last != std::string::npos) expected[last + 1] = '\0';
  std::string trimmed = text;
  ExpectEqual(size_t(trim_white_space(trimmed.data()) - trimmed.data()), begin, "the start of the trimmed text");
  ExpectEqual(trimmed, expected, "the trimmed text");
}

void CheckGuid(const std::string& text) {
  std::string digits;
  bool only_digits = true;
  for (const char c : text) {
    only_digits = only_digits && (c == '-' || (c != '\0' && strchr("0123456789abcdefABCDEF", c)));
    if (c != '-') digits += c;
  }
  const std::unique_ptr<uint8_t[]> guid(new uint8_t[16]);  // on the heap, where a byte more is found out
  Expect(!string_to_guid(nullptr, guid.get()), "no text is no GUID");
  const bool success = string_to_guid(text.c_str(), guid.get());
  ExpectEqual(success, only_digits && digits.size() == 32, "GUID " + text);
  for (size_t i = 0; success && i < 16; ++i) {
    ExpectEqual(unsigned{guid[i]}, unsigned(std::stoul(digits.substr(2 * i, 2), nullptr, 16)),
                "a byte of GUID " + text);
  }
}

void CheckHexDigits(const std::string& text) {
  for (const char digit : text) {
    const size_t at = std::string("0123456789abcdefABCDEF").find(digit);
    const int value = at == std::string::npos ? -1 : static_cast<int>(at < 16 ? at : at - 6);
    ExpectEqual(hex_char_to_int(digit), value, std::string("the value of ") + digit);
  }
}

void ExpectText(char* made, const std::string& expected, const char* what) {
  const std::unique_ptr<char, void (*)(void*)> owned(made, free);
  ExpectEqual(std::string(made), expected, what);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(data, std::find(data, data + size, uint8_t{0}));
  CheckNumber(string_to_long, text, "long ");
  CheckNumber(string_to_unsigned_long, text, "unsigned long ");
  CheckNumber(string_to_long_long, text, "long long ");
  CheckNumber(string_to_unsigned_long_long, text, "unsigned long long ");
  CheckNumber(string_to_sizet, text, "size_t ");
  CheckNumber(string_to_u64, text, "uint64_t ");
  CheckNumber(string_to_u32, text, "uint32_t ");
  CheckNumber(string_to_u16, text, "uint16_t ");
  CheckNumber(string_to_u8, text, "uint8_t ");
  Expect(!string_to_long("1", nullptr) && !string_to_unsigned_long("1", nullptr) &&
             !string_to_long_long("1", nullptr) && !string_to_unsigned_long_long("1", nullptr),
         "a number needs a place");
  Expect(string_to_boolean(nullptr), "no text is true");
  ExpectEqual(string_to_boolean(text.c_str()), text == "1" || text == "True" || text == "true", "boolean " + text);
  CheckTrimming(text);
  CheckGuid(text);
  CheckHexDigits(text);
  const std::string list = text.substr(0, text.size() / 2);
  ExpectText(string_concat_comma_seperated_token(list.c_str(), text.c_str()), list + (list.empty() ? "" : ",") + text,
             "the list with one token more");
  ExpectText(string_concat_comma_seperated_token(nullptr, text.c_str()), text, "the first token of a list");
  ExpectText(tev_expand_string_template("%s|%zu", text.c_str(), size), text + "|" + std::to_string(size),
             "the expanded template");
  return 0;
}
