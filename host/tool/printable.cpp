// Escapes control characters and cuts lines; decodes UTF-8 itself, because bytes may be invalid.

#include "host/tool/printable.h"

#include <algorithm>
#include <cstdio>

namespace standin {
namespace {

unsigned char ByteAt(const std::string& text, size_t i) {
  return i < text.size() ? static_cast<unsigned char>(text[i]) : '\0';
}

// Returns the length of the UTF-8 character at `i`; 0 if the bytes are invalid, overlong or a surrogate.
size_t CharacterLength(const std::string& text, size_t i) {
  const unsigned char first = ByteAt(text, i);
  const unsigned char second = ByteAt(text, i + 1);
  if (first < 0x80) return 1;
  const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4) return 0;
  if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F)) return 0;
  if ((first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F)) return 0;
  for (size_t k = 1; k < length; ++k) {
    if ((ByteAt(text, i + k) & 0xC0) != 0x80) return 0;
  }
  return length;
}

// Returns the columns that the character at `i` takes in a terminal: two from U+3000 on, where most are wide, else one.
size_t Columns(const std::string& text, size_t i) { return ByteAt(text, i) < 0xE3 ? 1 : 2; }

// `line` has no line end.
void AppendShortened(const std::string& line, size_t columns, std::string* lines) {
  size_t used = 0;
  size_t kept = 0;  // bytes that leave a column for the ellipsis
  for (size_t i = 0; i < line.size(); i += std::max<size_t>(1, CharacterLength(line, i))) {
    if (used < columns) kept = i;
    used += Columns(line, i);
  }
  lines->append(line, 0, used > columns ? kept : line.size());
  if (used > columns) lines->append("\u2026");
}

}  // namespace

std::string Shortened(const std::string& lines, size_t columns) {
  std::string shortened;
  for (size_t begin = 0; begin <= lines.size();) {
    const size_t end = std::min(lines.find('\n', begin), lines.size());
    AppendShortened(lines.substr(begin, end - begin), columns, &shortened);
    if (end < lines.size()) shortened += '\n';
    begin = end + 1;
  }
  return shortened;
}

bool IsUtf8(const std::string& text) {
  for (size_t i = 0; i < text.size();) {
    const size_t length = CharacterLength(text, i);
    if (length == 0) return false;
    i += length;
  }
  return true;
}

std::string Printable(const std::string& text) {
  std::string printable;
  for (size_t i = 0; i < text.size();) {
    const size_t length = CharacterLength(text, i);
    const unsigned char last = ByteAt(text, length == 2 ? i + 1 : i);
    const bool control = length == 1 ? last < 0x20 || last == 0x7F : length == 2 && text[i] == '\xC2' && last < 0xA0;
    if (length != 0 && !control) {
      printable.append(text, i, length);
    } else {
      char escape[5];
      snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned>(last));
      printable += escape;
    }
    i += length == 0 ? 1 : length;
  }
  return printable;
}

}  // namespace standin
