// The logger's hex dump.

#include <cstring>

#include "utils/log/log.h"

namespace {

constexpr uint64_t kBytesPerLine = 16;

// Formats the line of `count` bytes, 1 to 16. The hexadecimal part always has 50 columns: two groups of eight pairs.
// The printable characters follow.
void FormatLine(const unsigned char* bytes, uint64_t count, char (&line)[100]) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  memset(line, ' ', 50);
  char printable[kBytesPerLine + 1] = {};
  for (uint64_t i = 0; i < count; ++i) {
    const uint64_t column = 3 * i + (i < 8 ? 0 : 1);
    line[column] = kDigits[bytes[i] >> 4];
    line[column + 1] = kDigits[bytes[i] & 0xF];
    printable[i] = bytes[i] >= 0x20 && bytes[i] <= 0x7E ? static_cast<char>(bytes[i]) : '.';
  }
  snprintf(line + 50, sizeof line - 50, "|  %s ", printable);
}

}  // namespace

void log_hex(const void* data, uint64_t length) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  if (tev_log_level == -1) __tev_init_logger_default();
  if (static_cast<uint32_t>(tev_log_level) < TEV_LOG_DEBUG) return;
  for (uint64_t start = 0; start < length; start += kBytesPerLine) {
    char line[100];
    FormatLine(bytes + start, length - start < kBytesPerLine ? length - start : kBytesPerLine, line);
    // The level is compared for each line, because a log function may change it in between. It is compared unsigned, so
    // -1 (not set) admits the line.
    if (static_cast<uint32_t>(tev_log_level) >= TEV_LOG_DEBUG) TEV_LOG_EMIT(TEV_LOG_DEBUG, "%s", line);
  }
}
