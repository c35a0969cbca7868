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
std::vector<Line> waiting;
size_t dropped = 0;

void Log(int level, const std::string& text) { TEV_LOG(level, "[python script] %s", text.c_str()); }

void WriteLine(Line line) {
  // A message ends at its first zero character.
  std::replace(line.text.begin(), line.text.end(), '\0', ' ');
  if (std::this_thread::get_id() == driver) {
    Log(line.level, line.text);
  } else if (waiting.size() < kMostLines) {
    waiting.push_back(std::move(line));
  } else {
    ++dropped;
  }
}

}  // namespace

void Begin() { driver = std::this_thread::get_id(); }

void Write(int level, const std::string& text) {
  if (driver == std::thread::id()) return;
  size_t begin = 0;
  for (size_t end = 0; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
    WriteLine({level, text.substr(begin, end - begin)});
  }
  // What follows the last line end is a line only if there is something, or if it is all there is.
  if (begin < text.size() || begin == 0) WriteLine({level, text.substr(begin)});
}

void Flush() {
  if (waiting.empty()) return;
  const std::vector<Line> lines = std::exchange(waiting, {});
  const size_t lost = std::exchange(dropped, 0);
  for (const Line& line : lines) Log(line.level, line.text);
  if (lost > 0) {
    TEV_LOG(TEV_LOG_WARNING, "[python provider] lines of threads dropped: %zu, since only %zu wait for a callback",
            lost, kMostLines);
  }
}

void End() {
  Flush();
  driver = std::thread::id();
}

}  // namespace host_log
