// The supervisor and its worker process: the memory that they share, signals, and how the worker ends.

#include "host/tool/supervisor.h"

#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <new>
#include <optional>
#include <system_error>
#include <thread>

#include "host/tool/printable.h"

namespace standin {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kGlance(50);          // how often the supervisor looks at the worker
constexpr std::chrono::milliseconds kSameInterrupt(100);  // one key press or `timeout` may bring the signal twice
constexpr std::chrono::seconds kPatience(2);              // for the scripts to end after the exit status is decided
constexpr std::chrono::seconds kLongStep(5);              // after which a script that is still running is named

enum Outcome : int { kNone = -1, kFailed = 0, kSucceeded = 1 };

// Lies in memory that worker and supervisor share.
struct Shared {
  std::atomic<bool> interrupted{false};
  std::atomic<int> outcome{kNone};
  std::atomic<bool> in_step{false};
  std::atomic<uint32_t> steps{0};  // begun so far
  std::array<char, 1024> who{};    // read after the worker has ended, or where a half-written text does no harm
  Tally tally;
};
Shared* shared = nullptr;

extern "C" void IgnoreSignal(int /*signal*/) {}

void Require(bool success, const char* what) {
  if (!success) throw std::system_error(errno, std::generic_category(), what);
}

class Supervisor {
 public:
  Supervisor(const std::function<bool()>& work, const OnLoss& on_loss) : work_(work), on_loss_(on_loss) {
    // The constructor runs in this process, before the fork; new memory is zero.
    void* memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    Require(memory != MAP_FAILED, "cannot share memory");
    shared = new (memory) Shared;
    // A handler, not SIG_IGN: programs that scripts start would inherit SIG_IGN, but get the default for a handler.
    struct sigaction action {};
    action.sa_handler = IgnoreSignal;
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigset_t watched;
    sigemptyset(&watched);
    sigaddset(&watched, SIGINT);
    sigaddset(&watched, SIGCHLD);
    sigprocmask(SIG_BLOCK, &watched, &mask_before_);
    signals_ = signalfd(-1, &watched, SFD_CLOEXEC | SFD_NONBLOCK);
    Require(signals_ >= 0, "cannot wait for signals");
  }
  ~Supervisor() { close(signals_); }
  Supervisor(const Supervisor&) = delete;
  Supervisor& operator=(const Supervisor&) = delete;

  bool Run() {
    while (true) {
      StartWorker();
      const std::optional<int> status = WaitForWorker();
      if (!status) return shared->outcome == kSucceeded;
      if (shared->outcome != kNone) {
        if (WIFSIGNALED(*status)) {
          Complain("the end of the scripts, in finalize, ended the process by signal " + SignalText(WTERMSIG(*status)));
        }
        return shared->outcome == kSucceeded && WIFEXITED(*status);
      }
      if (!TellLoss(*status) || shared->interrupted) return false;
      shared->in_step = false;
    }
  }

 private:
  void StartWorker() {
    const pid_t self = getpid();
    worker_ = fork();
    Require(worker_ >= 0, "cannot start a process");
    if (worker_ > 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != self) _exit(EXIT_FAILURE);
    sigprocmask(SIG_SETMASK, &mask_before_, nullptr);
    Conclude(work_);
    std::cout.flush();
    // _exit instead of exit, because threads of scripts may still run and use objects that exit destroys.
    _exit(shared->outcome == kSucceeded ? EXIT_SUCCESS : EXIT_FAILURE);
  }

  // Returns the wait status of the worker; null if it had to be killed although its work was done.
  std::optional<int> WaitForWorker() {
    int status = 0;
    while (waitpid(worker_, &status, WNOHANG) == 0) {
      pollfd ready{signals_, POLLIN, 0};
      poll(&ready, 1, static_cast<int>(kGlance.count()));
      ReadSignals();
      TellLongStep();
      if (HasNoEnd()) {
        Complain("a thread of a script, or a function of atexit, does not end: a host waits for it in finalize");
        EndWorker();
        return std::nullopt;
      }
    }
    return status;
  }

  // Once for each step.
  void TellLongStep() {
    const uint32_t step = shared->steps;
    if (step != seen_step_ || !shared->in_step) {
      seen_step_ = step;
      step_begun_ = Clock::now();
    } else if (step != told_step_ && Clock::now() - step_begun_ > kLongStep) {
      told_step_ = step;
      Complain(Who() + ": at work for " + std::to_string(kLongStep.count()) + " seconds");
    }
  }

  void ReadSignals() {
    for (signalfd_siginfo signal{}; read(signals_, &signal, sizeof signal) == sizeof signal;) {
      if (signal.ssi_signo == SIGINT) OnInterrupt();
    }
  }

  void OnInterrupt() {
    const auto now = Clock::now();
    if (!shared->interrupted) {
      first_interrupt_ = now;
      shared->interrupted = true;
      if (shared->in_step) Complain("waiting for " + Who() + ", interrupt again to end");
    } else if (now - first_interrupt_ > kSameInterrupt) {
      EndWorker();
      EndBy(SIGINT);
    }
  }

  bool HasNoEnd() {
    if (shared->outcome == kNone) return false;
    if (!concluded_) concluded_ = Clock::now();
    return Clock::now() - *concluded_ > kPatience;
  }

  void EndWorker() const {
    kill(worker_, SIGKILL);
    waitpid(worker_, nullptr, 0);
  }

  // Ends this process with the signal's default action.
  static void EndBy(int signal) {
    std::signal(signal, SIG_DFL);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    raise(signal);
    sigprocmask(SIG_UNBLOCK, &only, nullptr);
  }

  static std::string SignalText(int signal) { return std::to_string(signal) + " (" + strsignal(signal) + ")"; }

  static std::string Who() { return shared->who.data(); }

  // Returns true if another worker is to go on.
  bool TellLoss(int status) const {
    const bool by_signal = WIFSIGNALED(status);
    const std::string who = shared->in_step ? Who() : "a thread of a script";
    if (!by_signal) {
      return on_loss_(who, "ended the process with exit status " + std::to_string(WEXITSTATUS(status)) +
                               ", as sys.exit and os._exit do: leave with return");
    }
    // The reader of the output is gone.
    if (!shared->in_step && WTERMSIG(status) == SIGPIPE) EndBy(SIGPIPE);
    return on_loss_(who, "ended the process by signal " + SignalText(WTERMSIG(status)));
  }

  const std::function<bool()>& work_;
  const OnLoss& on_loss_;
  sigset_t mask_before_{};
  pid_t worker_ = -1;
  int signals_ = -1;
  Clock::time_point first_interrupt_;
  Clock::time_point step_begun_;
  uint32_t seen_step_ = 0;
  uint32_t told_step_ = 0;
  std::optional<Clock::time_point> concluded_;
};

}  // namespace

bool Supervise(const std::function<bool()>& work, const OnLoss& on_loss) { return Supervisor(work, on_loss).Run(); }

Step::Step(const std::string& who) {
  const size_t length = std::min(who.size(), shared->who.size() - 1);
  std::copy_n(who.begin(), length, shared->who.begin());
  shared->who.at(length) = '\0';
  ++shared->steps;
  shared->in_step = true;
}

Step::~Step() { shared->in_step = false; }

bool Attempt(const std::function<void()>& work) {
  try {
    work();
    return true;
  } catch (const std::exception& error) {
    Complain(error.what());
    return false;
  }
}

void Complain(const std::string& message) { std::cerr << "rubruf-host: " << Printable(message) << std::endl; }

Tally& SharedTally() { return shared->tally; }

bool Conclude(const std::function<bool()>& work) {
  bool success = false;
  Attempt([&] { success = work(); });
  // If calls of Conclude are nested, the result of the inner one counts, because it comes first.
  int none = kNone;
  shared->outcome.compare_exchange_strong(none, success ? kSucceeded : kFailed);
  return success;
}

bool Interrupted() { return shared->interrupted; }

void Pause(std::chrono::duration<double> time) {
  const std::chrono::duration<double> kStep(0.02);
  for (const auto start = Clock::now(); !Interrupted() && Clock::now() - start < time;) {
    std::this_thread::sleep_for(std::min(kStep, time));
  }
}

}  // namespace standin
