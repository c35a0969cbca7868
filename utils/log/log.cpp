// The logger: its level, its log function and its sinks.

#include "utils/log/log.h"

#include <syslog.h>

#include <cstdarg>
#include <cstdlib>
#include <ctime>

int tev_log_level = -1;

namespace {

enum LoggerType : uint32_t { LOGGER_STDERR = 0, LOGGER_SYSLOG = 1, LOGGER_FILE = 2 };

tev_log_func_t log_func = nullptr;
FILE* log_stream = nullptr;
LoggerType logger_type = LOGGER_STDERR;

const char* LevelTag(int level) {
  switch (level) {
    case TEV_LOG_ERROR:
      return "[error] ";
    case TEV_LOG_WARNING:
      return "[warning] ";
    case TEV_LOG_INFO:
      return "[info] ";
    case TEV_LOG_DEBUG:
      return "[debug] ";
    default:
      return "";
  }
}

void WriteTimestamp(FILE* stream) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  long milliseconds = now.tv_nsec / 1000000;
  if (milliseconds >= 1000) {
    now.tv_sec += 1;
    milliseconds -= 1000;
  }
  tm local{};
  localtime_r(&now.tv_sec, &local);
  char date[26];
  strftime(date, sizeof date, "[%Y-%m-%d %H:%M:%S", &local);
  fprintf(stream, "%s.%03d] ", date, static_cast<int>(milliseconds));
}

}  // namespace

void set_log_func(tev_log_func_t func, int level) {
  log_func = func;
  tev_log_level = level;
}

tev_log_func_t get_log_func(void) { return log_func; }

bool tev_init_stderr_logger(int level) {
  log_stream = stderr;
  tev_log_level = level;
  logger_type = LOGGER_STDERR;
  return true;
}

void __tev_init_logger_default(void) {
  int level = 0;
  const char* text = getenv("TEV_API_LOG_LEVEL");
  // Text behind the number is ignored, and a value without a number counts as absent. That is the rule of sscanf.
  // NOLINTNEXTLINE(cert-err34-c)
  if (text != nullptr && sscanf(text, "%d", &level) != 1) level = 0;
  tev_init_stderr_logger(level);
}

bool tev_init_syslog_logger(const char* identity, int level) {
  openlog(identity, LOG_PID | LOG_CONS, LOG_DAEMON);
  logger_type = LOGGER_SYSLOG;
  tev_log_level = level;
  return true;
}

bool tev_close_logger(void) {
  if (logger_type == LOGGER_SYSLOG) closelog();
  if (logger_type == LOGGER_FILE) fclose(log_stream);
  return tev_init_stderr_logger(tev_log_level);
}

bool tev_init_file_logger(const char* path, int level) {
  tev_close_logger();
  log_stream = fopen(path, "we");
  if (log_stream == nullptr) {
    tev_init_stderr_logger(level);
    return false;
  }
  logger_type = LOGGER_FILE;
  tev_log_level = level;
  return true;
}

void _tev_log(int level, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  if (logger_type == LOGGER_SYSLOG) {
    vsyslog(level, format, arguments);
  } else {
    if (log_stream == nullptr) tev_init_stderr_logger(tev_log_level);
    WriteTimestamp(log_stream);
    fputs(LevelTag(level), log_stream);
    vfprintf(log_stream, format, arguments);
    fputs("\n", log_stream);
    fflush(log_stream);
  }
  va_end(arguments);
}

void print_si_prefixed_value(FILE* stream, int width, int64_t value) {
  if (value <= 999) {
    fprintf(stream, " %*lld |", width, static_cast<long long>(value));
  } else {
    fprintf(stream, " %*lld k |", width - 2, static_cast<long long>(value / 1000));
  }
}
