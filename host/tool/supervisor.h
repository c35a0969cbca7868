// Runs the work of a command in a child process, the worker, which scripts may end, crash or block; the supervisor then
// tells which script it was.

#ifndef RUBRUF_HOST_TOOL_SUPERVISOR_H_
#define RUBRUF_HOST_TOOL_SUPERVISOR_H_

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "provider/option_keys.h"

namespace standin {

// What the report of "check" amounts to so far, where the supervisor can complete it and the next worker goes on.
struct Tally {
  std::atomic<uint32_t> workers{0};
  std::atomic<uint32_t> scripts{0};
  std::atomic<uint32_t> reported{0};                               // scripts whose paragraphs are complete
  std::atomic<int> importing{-1};                                  // the index of the script that is being imported
  std::array<std::atomic<bool>, kMaxScripts> is_lost_at_import{};  // importing the script has ended a worker
  std::atomic<uint32_t> errors{0};
  std::atomic<uint32_t> warnings{0};
  std::atomic<bool> line_is_open{false};
};

// Called in the supervisor when `who`, a script, ended the worker in the way `how`. True if another worker is to go on.
using OnLoss = std::function<bool(const std::string& who, const std::string& how)>;

// Has `work` done in a worker, which ends with it and with this process. True when that succeeded. A script that is at
// work for long is named. An interrupt is a wish to end: the first one tells what it waits for, a second one ends the
// process. All other signals act at once.
bool Supervise(const std::function<bool()>& work, const OnLoss& on_loss);

// What follows is for the worker.

// While it lives, a script is at work. One at a time.
class Step {
 public:
  explicit Step(const std::string& who);
  ~Step();
  Step(const Step&) = delete;
  Step& operator=(const Step&) = delete;
};

Tally& SharedTally();

// Does `work`, and fixes that success is what the command ends with, because the end of the scripts, which follows, may
// never come. A std::exception is a failure, after a complaint.
bool Conclude(const std::function<bool()>& work);

// Does `work`. False after a complaint when it throws a std::exception.
bool Attempt(const std::function<void()>& work);

// A line on standard error.
void Complain(const std::string& message);

// Whether the user wishes an end.
bool Interrupted();

// Returns after `time`, and early on an interrupt.
void Pause(std::chrono::duration<double> time);

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_SUPERVISOR_H_
