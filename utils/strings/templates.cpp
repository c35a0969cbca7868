// Expansion of printf templates, and comma-separated token lists.

#include "utils/strings/templates.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "utils/log/log.h"

namespace {

// vsnprintf with a copy of `values`, because a va_list can be used only once.
int FormatCopy(char* buffer, size_t size, const char* format, va_list values) {
  va_list copy;
  va_copy(copy, values);
  const int length = vsnprintf(buffer, size, format, copy);
  va_end(copy);
  return length;
}

}  // namespace

char* tev_vexpand_string_template(const char* format, va_list values) {
  const int length = FormatCopy(nullptr, 0, format, values);
  if (length < 0) {
    TEV_UTIL_LOG(TEV_LOG_ERROR, "Failed to calculate length of expanded string template");
    return nullptr;
  }
  const size_t size = static_cast<size_t>(length) + 1;
  auto* expanded = static_cast<char*>(malloc(size));
  if (expanded == nullptr) {
    TEV_UTIL_LOG(TEV_LOG_ERROR, "Failed to allocate buffer for expanded string of size %d: %s", static_cast<int>(size),
                 strerror(errno));
    return nullptr;
  }
  if (FormatCopy(expanded, size, format, values) != length) {
    TEV_UTIL_LOG(TEV_LOG_ERROR, "Failed to expand file string template");
    free(expanded);
    return nullptr;
  }
  return expanded;
}

char* tev_expand_string_template(const char* format, ...) {
  va_list values;
  va_start(values, format);
  char* expanded = tev_vexpand_string_template(format, values);
  va_end(values);
  return expanded;
}

char* string_concat_comma_seperated_token(const char* list, const char* token) {
  const size_t list_length = list == nullptr ? 0 : strlen(list);
  const size_t token_length = strlen(token);
  auto* joined = static_cast<char*>(malloc(list_length + token_length + 2));
  if (joined == nullptr) {
    TEV_UTIL_LOG(TEV_LOG_ERROR, "[%s] Failed in malloc", "string_concat_comma_seperated_token");
    return nullptr;
  }
  size_t end = list_length;
  if (list_length != 0) {
    memcpy(joined, list, list_length);  // NOLINT(bugprone-not-null-terminated-result): the token ends it
    joined[end++] = ',';
  }
  memcpy(joined + end, token, token_length + 1);
  return joined;
}
