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

// The progress of `check`, in shared memory: the supervisor completes the report with it, and the next worker goes on.
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

// Called in the supervisor after the script `who` ended the worker; `how` describes it. Returns true if another worker
// is to go on.
using OnLoss = std::function<bool(const std::string& who, const std::string& how)>;

// Runs `work` in a worker process, which ends when the work or this process ends. Returns whether the work succeeded.
// Names a script that runs for a long time. After the first interrupt it says what it waits for; the second one ends
// the process. All other signals act at once.
bool Supervise(const std::function<bool()>& work, const OnLoss& on_loss);

// The declarations below are for the worker.

// Marks the time in which a script runs. There is at most one Step at a time.
class Step {
 public:
  explicit Step(const std::string& who);
  ~Step();
  Step(const Step&) = delete;
  Step& operator=(const Step&) = delete;
};

Tally& SharedTally();

// Runs `work`, and stores its success as the result of the command, because the finalization of the scripts that
// follows may never end. Reports a std::exception as a failure.
bool Conclude(const std::function<bool()>& work);

// Runs `work`. If it throws a std::exception, reports that and returns false.
bool Attempt(const std::function<void()>& work);

// Writes a line to standard error.
void Complain(const std::string& message);

// Returns whether the user has interrupted the process.
bool Interrupted();

// Returns after `time`, and early on an interrupt.
void Pause(std::chrono::duration<double> time);

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_SUPERVISOR_H_
