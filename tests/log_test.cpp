// Tests of the logger: levels, lines, sinks, the log function, the hexadecimal dump and the number columns.
//
// The tests replace the C library's clock and system log, so that times are known and no log daemon is needed.

#include "utils/log/log.h"

#include <gtest/gtest.h>
#include <stdarg.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include "tests/provider_test_base.h"

namespace {
timespec wall_clock;     // the time that the real-time clock returns, unless it is 0
std::string system_log;  // one line per call
}  // namespace

extern "C" int clock_gettime(clockid_t clock_id, timespec* tp) noexcept {
  const bool real = clock_id != CLOCK_REALTIME || wall_clock.tv_sec == 0;
  if (real) return static_cast<int>(syscall(SYS_clock_gettime, clock_id, tp));
  *tp = wall_clock;
  return 0;
}

extern "C" void openlog(const char* ident, int option, int facility) {
  system_log += std::string("open ") + ident + ' ' + std::to_string(option) + ' ' + std::to_string(facility) + '\n';
}

extern "C" void vsyslog(int pri, const char* fmt, va_list ap) {
  char message[100];
  vsnprintf(message, sizeof message, fmt, ap);
  system_log += std::to_string(pri) + ' ' + message + '\n';
}

extern "C" void closelog() { system_log += "close\n"; }

namespace {

RUBRUF_IMPORT(get_log_func);
RUBRUF_IMPORT(tev_init_stderr_logger);
RUBRUF_IMPORT(__tev_init_logger_default);
RUBRUF_IMPORT(tev_init_syslog_logger);
RUBRUF_IMPORT(tev_init_file_logger);
RUBRUF_IMPORT(tev_close_logger);
RUBRUF_IMPORT(_tev_log);
RUBRUF_IMPORT(log_hex);
RUBRUF_IMPORT(print_si_prefixed_value);

int& tev_log_level = *Library().Symbol<int*>("tev_log_level");
const int level_at_load = tev_log_level;

using Messages = LogCatcher::Messages;

template <typename Act>
std::string Stderr(Act act) {
  testing::internal::CaptureStderr();
  act();
  return testing::internal::GetCapturedStderr();
}

std::string Line(const std::string& rest) { return "[2024-05-06 07:08:09.012] " + rest + '\n'; }

class Log : public testing::Test {
 protected:
  void SetUp() override {
    setenv("TZ", "EAST-2", true);
    tzset();
    wall_clock = {1714972089, 12'999'999};  // 05:08:09 in Greenwich
  }
  void TearDown() override {
    tev_close_logger();
    tev_log_level = -1;
    wall_clock = {};
    system_log.clear();
    unsetenv("TEV_API_LOG_LEVEL");
  }

  const TempDir dir_;
  const std::string path_ = dir_ / "log";
};

TEST_F(Log, WritesToStandardErrorByDefault) {
  EXPECT_EQ(level_at_load, -1);
  EXPECT_EQ(get_log_func(), nullptr);
  EXPECT_EQ(Stderr([] { _tev_log(TEV_LOG_ERROR, "first"); }), Line("[error] first"));
  EXPECT_EQ(tev_log_level, -1);
}

TEST_F(Log, TakesItsLevelFromTheEnvironment) {
  // The variable's value, the level, and the levels that are shown: of provider messages, of utility messages.
  const std::tuple<const char*, int, std::string, std::string> cases[] = {
      {nullptr, 0, "", ""},     {"", 0, "", ""},           {"debug", 0, "", ""},   {"0", 0, "", ""},
      {"3", 3, "3", "3"},       {"4 of 7", 4, "34", "34"}, {" 5", 5, "34", "34"},  {"6", 6, "346", "346"},
      {"7", 7, "3467", "3467"}, {"+9", 9, "3467", "3467"}, {"-1", -1, "", "3467"}, {"-5", -5, "", "3467"}};
  for (const auto& [value, expected_level, provider, utilities] : cases) {
    SCOPED_TRACE(value ? value : "(unset)");
    if (value) setenv("TEV_API_LOG_LEVEL", value, true);
    std::string shown;
    LogCatcher log(-1);
    for (const int level : {3, 4, 6, 7}) TEV_LOG(level, "%d", level);
    for (const auto& message : log.Take()) shown += message.second;
    EXPECT_EQ(shown, provider);
    EXPECT_EQ(tev_log_level, expected_level);
    tev_log_level = -1;
    shown.clear();
    for (const int level : {3, 4, 6, 7}) TEV_UTIL_LOG(level, "%d", level);
    for (const auto& message : log.Take()) shown += message.second;
    EXPECT_EQ(shown, utilities);
    tev_log_level = -1;
    log_hex("", 0);
    EXPECT_EQ(tev_log_level, expected_level);
    log_hex("", 1);
    EXPECT_EQ(log.Take().size(), utilities == "3467" ? 1U : 0U);
  }
}

TEST_F(Log, ReadsTheEnvironmentUntilItHasALevel) {
  for (const auto& [value, level] : {std::pair("-1", -1), std::pair("4", 4), std::pair("7", 4)}) {
    setenv("TEV_API_LOG_LEVEL", value, true);
    EXPECT_EQ(Stderr([] { TEV_LOG(TEV_LOG_WARNING, "shown"); }), level == 4 ? Line("[warning] shown") : "");
    EXPECT_EQ(tev_log_level, level);
  }
}

TEST_F(Log, WritesStampTagAndMessageWhateverTheLevel) {
  const std::pair<int, std::string> tags[] = {{3, "[error] "}, {4, "[warning] "}, {6, "[info] "}, {7, "[debug] "},
                                              {0, ""},         {1, ""},           {2, ""},        {5, ""},
                                              {8, ""},         {-1, ""},          {-4, ""}};
  EXPECT_TRUE(tev_init_stderr_logger(0));
  for (const auto& [level, tag] : tags) {
    EXPECT_EQ(Stderr([at = level] { _tev_log(at, "%s %d%%", "text", 7); }), Line(tag + "text 7%"));
  }
  wall_clock.tv_nsec = 999'999'999;
  EXPECT_EQ(Stderr([] { _tev_log(0, "late"); }), "[2024-05-06 07:08:09.999] late\n");
}

TEST_F(Log, TruncatesFlushesAndClosesItsFile) {
  const auto open_files = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
  };
  const auto before = open_files();
  for (const char* message : {"one", "two"}) {
    EXPECT_TRUE(tev_init_file_logger(path_.c_str(), 6));
    EXPECT_EQ(tev_log_level, 6);
    _tev_log(TEV_LOG_DEBUG, "%s", message);
    EXPECT_EQ(ReadFile(path_), Line(std::string("[debug] ") + message));
  }
  EXPECT_TRUE(tev_close_logger());
  EXPECT_EQ(open_files(), before);
  EXPECT_EQ(tev_log_level, 6);
  EXPECT_EQ(Stderr([] { _tev_log(5, "three"); }), Line("three"));
  EXPECT_EQ(ReadFile(path_), Line("[debug] two"));
}

TEST_F(Log, FallsBackToStandardErrorWithoutAFile) {
  tev_init_file_logger(path_.c_str(), 7);
  EXPECT_EQ(Stderr([&] { EXPECT_FALSE(tev_init_file_logger((path_ + "/below").c_str(), 4)); }), "");
  EXPECT_EQ(tev_log_level, 4);
  EXPECT_EQ(Stderr([] { TEV_LOG(TEV_LOG_WARNING, "here"); }), Line("[warning] here"));
  EXPECT_EQ(ReadFile(path_), "");
}

TEST_F(Log, WritesNoStampOrTagToTheSystemLog) {
  const auto log_all = [] {
    TEV_LOG(TEV_LOG_DEBUG, "hidden");
    TEV_LOG(TEV_LOG_ERROR, "%s", "%d");
    _tev_log(5, "number %d", 1);
  };
  EXPECT_TRUE(tev_init_syslog_logger("tests", 6));
  EXPECT_EQ(Stderr(log_all), "");
  EXPECT_EQ(system_log, "open tests 3 24\n3 %d\n5 number 1\n") << "options: process ID and console; facility: daemon";
  EXPECT_TRUE(tev_close_logger());
  EXPECT_EQ(tev_log_level, 6);
  EXPECT_EQ(Stderr(log_all), Line("[error] %d") + Line("number 1"));
  EXPECT_EQ(system_log, "open tests 3 24\n3 %d\n5 number 1\nclose\n");
}

TEST_F(Log, HandsMessagesToTheFunctionInsteadOfTheSink) {
  const std::string longest(2000, 'x');
  tev_init_file_logger(path_.c_str(), 7);
  {
    LogCatcher log(TEV_LOG_WARNING);
    EXPECT_NE(get_log_func(), nullptr);
    TEV_LOG(TEV_LOG_INFO, "hidden");
    TEV_LOG(TEV_LOG_WARNING, "%d%%", 50);
    TEV_UTIL_LOG(TEV_LOG_ERROR, "%s", longest.c_str());
    EXPECT_EQ(log.Take(), (Messages{{4, "50%"}, {3, std::string(998, 'x')}}));
    _tev_log(TEV_LOG_ERROR, "direct");
  }
  EXPECT_EQ(get_log_func(), nullptr);
  tev_log_level = TEV_LOG_ERROR;
  TEV_LOG(TEV_LOG_ERROR, "%s", longest.c_str());
  EXPECT_EQ(ReadFile(path_), Line("[error] direct") + Line("[error] " + longest))
      << "a sink does not cut long messages";
}

TEST_F(Log, DumpsBytesInLinesOfSixteen) {
  const auto line = [](std::string hexadecimal, const std::string& text) {
    hexadecimal.resize(50, ' ');
    return std::pair(7, hexadecimal + "|  " + text + ' ');
  };
  const auto full = line("30 31 32 33 34 35 36 37  38 39 61 62 63 64 65 66", "0123456789abcdef");
  const std::pair<std::string, Messages> cases[] = {
      {"", {}},
      {{"AB\0\x7f ", 5}, {line("41 42 00 7F 20", "AB.. ")}},
      {"%s%n\x1f~\x80\xff", {line("25 73 25 6E 1F 7E 80 FF", "%s%n.~..")}},
      {"123456789", {line("31 32 33 34 35 36 37 38  39", "123456789")}},
      {"0123456789abcdef", {full}},
      {"0123456789abcdefg", {full, line("67", "g")}}};
  for (const int level : {7, 8, -5, 6, 0}) {
    LogCatcher log(level);
    for (const auto& [bytes, lines] : cases) {
      log_hex(bytes.data(), bytes.size());
      EXPECT_EQ(log.Take(), level == 6 || level == 0 ? Messages() : lines) << level << ' ' << bytes;
    }
  }
  tev_log_level = TEV_LOG_DEBUG;
  EXPECT_EQ(Stderr([] { log_hex("%d", 2); }), Line("[debug] " + line("25 64", "%d").second));
}

TEST(NumberColumns, KeepTheirWidthWithThousands) {
  const std::pair<int, int64_t> columns[] = {{6, 0},      {6, 999},    {6, 1000},      {6, 12999},     {6, 1'000'000},
                                             {2, 123456}, {6, -12345}, {1, INT64_MIN}, {20, INT64_MAX}};
  char text[200] = "";
  FILE* const stream = fmemopen(text, sizeof text, "w");
  for (const auto& [width, value] : columns) print_si_prefixed_value(stream, width, value);
  fclose(stream);
  EXPECT_STREQ(text,
               "      0 |    999 |    1 k |   12 k | 1000 k | 123 k | -12345 | -9223372036854775808 |"
               "   9223372036854775 k |");
}

}  // namespace
