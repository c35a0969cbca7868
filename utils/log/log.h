// The logger of the whole library, which the host may configure.
//
// A message of level L is emitted if L is not greater than `tev_log_level`. It goes to the host's log function if there
// is one, else to one sink: standard error, the system log, or a file. The library logs through TEV_LOG (provider,
// config) or TEV_UTIL_LOG (utils), never through _tev_log itself.
//
// The state is a few plain globals without a lock: configure the logger first, then log from several threads. One
// message is several writes to its stream, so the lines of concurrent threads can interleave.

#ifndef RUBRUF_UTILS_LOG_LOG_H_
#define RUBRUF_UTILS_LOG_LOG_H_

#include <stdarg.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>

#include "../export.h"

#ifdef __cplusplus
extern "C" {
#endif

// Syslog priorities; these four have a tag in the stream sinks.
enum { TEV_LOG_ERROR = 3, TEV_LOG_WARNING = 4, TEV_LOG_INFO = 6, TEV_LOG_DEBUG = 7 };

// Receives a finished message, without a line end, for the length of the call.
typedef void (*tev_log_func_t)(int level, const char* message);

// The current level. -1 means not set: the first message then sets it from the environment.
extern TEV_EXPORT int tev_log_level;

// Installs a log function (null removes it) and sets the level.
TEV_EXPORT void set_log_func(tev_log_func_t func, int level);
// The installed function or null.
TEV_EXPORT tev_log_func_t get_log_func(void);

// Each of these chooses a sink and sets the level. The result is true, unless a comment says otherwise.
TEV_EXPORT bool tev_init_stderr_logger(int level);
// Standard error, at the level that the environment variable "TEV_API_LOG_LEVEL" names. Without a number there, at
// level 0, which shows nothing.
TEV_EXPORT void __tev_init_logger_default(void);
// The system log. openlog keeps a reference to `identity`, so the text must outlive the sink. The earlier sink is not
// closed.
TEV_EXPORT bool tev_init_syslog_logger(const char* identity, int level);
// A file, which is created or truncated. False if it cannot be opened: the sink is then standard error, at `level`.
TEV_EXPORT bool tev_init_file_logger(const char* path, int level);
// Closes the current sink and goes back to standard error, at the same level.
TEV_EXPORT bool tev_close_logger(void);

// Writes one message to the current sink, whatever its level.
TEV_EXPORT void _tev_log(int level, const char* format, ...) __attribute__((cold, format(printf, 2, 3)));

// Logs `length` bytes at debug level, sixteen in a line, in hexadecimal and as printable characters.
TEV_EXPORT void log_hex(const void* data, uint64_t length);

// Prints one column of a table, " %*lld |". A value above 999 is printed in thousands, with a "k", in the same width.
TEV_EXPORT void print_si_prefixed_value(FILE* stream, int width, int64_t value);

#ifdef __cplusplus
}  // extern "C"
#endif

// Hands one message, cut to 998 characters, to a log function. It is a cold function of its own, so that code that logs
// needs no room for the buffer in its stack frame.
static void tev_call_log_func(tev_log_func_t func, int level, const char* format, ...)
    __attribute__((cold, noinline, unused, format(printf, 3, 4)));
static void tev_call_log_func(tev_log_func_t func, int level, const char* format, ...) {
  char message[1000];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(message, sizeof message - 1, format, arguments);
  va_end(arguments);
  func(level, message);
}

// Emits one message, whatever its level.
#define TEV_LOG_EMIT(level, ...)                              \
  do {                                                        \
    tev_log_func_t tev_log_func_ = get_log_func();            \
    if (tev_log_func_)                                        \
      tev_call_log_func(tev_log_func_, (level), __VA_ARGS__); \
    else                                                      \
      _tev_log((level), __VA_ARGS__);                         \
  } while (0)

// Emits one message if the condition `admits` is true. It is evaluated first, so a hidden message is not formatted.
#define TEV_LOG_WHEN(admits, level, ...)                  \
  do {                                                    \
    if (tev_log_level == -1) __tev_init_logger_default(); \
    if (admits) TEV_LOG_EMIT(level, __VA_ARGS__);         \
  } while (0)

// For the provider and the configuration: a level below -1 suppresses every message.
#define TEV_LOG(level, ...) TEV_LOG_WHEN(tev_log_level >= (level), level, __VA_ARGS__)
// For the utilities, which compare unsigned: a level below -1 admits every message.
#define TEV_UTIL_LOG(level, ...) TEV_LOG_WHEN((uint32_t)tev_log_level >= (uint32_t)(level), level, __VA_ARGS__)

#endif  // RUBRUF_UTILS_LOG_LOG_H_
