// Lines of scripts: logged at once on the provider's thread, kept for it on others.

#include "provider/host_log.h"

#include <algorithm>
#include <thread>
#include <utility>
#include <vector>

#include "utils/log/log.h"

namespace host_log {
namespace {

// Lines that may wait. A thread that logs without end, under a host that never calls, must not take all memory.
constexpr size_t kMostLines = 1000;

struct Line {
  int level;
  std::string text;
};

std::thread::id driver;  // the thread that drives the provider; none between lives
// Never destroyed, because threads of scripts may log until the very end of the process.
std::vector<Line>& waiting = *new std::vector<Line>;
size_t dropped = 0;
bool logging = false;  // the host's log function is at work, and may come back here

// Has a message logged. An exception of the host's log function must not pass through the interpreter.
template <class Emit>
void Guard(const Emit& emit) {
  logging = true;
  try {
    emit();
  } catch (...) {  // NOLINT(bugprone-empty-catch): the message is lost, and there is nobody else to tell
  }
  logging = false;
}

void Log(int level, const std::string& text) {
  Guard([&] { TEV_LOG(level, "[python script] %s", text.c_str()); });
}

void WriteMessage(Line line) {
  // A message ends at its first zero character.
  std::replace(line.text.begin(), line.text.end(), '\0', ' ');
  if (OnDrivingThread() && !logging) {
    Flush();
    Log(line.level, line.text);
  } else if (waiting.size() < kMostLines) {
    waiting.push_back(std::move(line));
  } else {
    ++dropped;
  }
}

// How much of a line that is too long, from `begin` on, is a message: what fits, without a character that is cut in
// two.
size_t FirstMessage(const std::string& line, size_t begin) {
  const auto continues = [&](size_t length) {
    return (static_cast<unsigned char>(line[begin + length]) & 0xC0) == 0x80;
  };
  size_t length = kLongestLine;
  while (length > kLongestLine - 3 && continues(length)) --length;
  return continues(length) ? kLongestLine : length;
}

void WriteLine(int level, const std::string& line) { WriteMessage({level, line.substr(WriteBeginning(level, line))}); }

}  // namespace

void Begin() { driver = std::this_thread::get_id(); }

bool OnDrivingThread() { return std::this_thread::get_id() == driver; }

void Write(int level, const std::string& text) {
  if (driver == std::thread::id()) return;
  size_t begin = 0;
  for (size_t end = 0; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
    WriteLine(level, text.substr(begin, end - begin));
  }
  // What follows the last line end is a line only if there is something, or if it is all there is.
  if (begin < text.size() || begin == 0) WriteLine(level, text.substr(begin));
}

size_t WriteBeginning(int level, const std::string& line) {
  size_t begin = 0;
  while (line.size() - begin > kLongestLine) {
    const size_t length = FirstMessage(line, begin);
    WriteMessage({level, line.substr(begin, length)});
    begin += length;
  }
  return begin;
}

// What is added meanwhile, by a log function that prints for instance, waits for the next time.
void Flush() {
  if (waiting.empty() || logging) return;
  const std::vector<Line> lines = std::exchange(waiting, {});
  const size_t lost = std::exchange(dropped, 0);
  for (const Line& line : lines) Log(line.level, line.text);
  if (lost == 0) return;
  Guard([=] {
    TEV_LOG(TEV_LOG_WARNING, "[python provider] lines of threads dropped: %zu, since only %zu wait for a callback",
            lost, kMostLines);
  });
}

void End() {
  driver = std::thread::id();
  Flush();
}

}  // namespace host_log
