// The option --watch: runs the command in child processes and waits for changes of files.

#include "host/tool/repeater.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <set>
#include <system_error>

#include "host/tool/configuration.h"
#include "host/tool/file_watch.h"
#include "host/tool/supervisor.h"
#include "provider/option_keys.h"

namespace standin {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kQuiet(100);      // without another change; after that the editor has written everything
constexpr milliseconds kPatience(2000);  // for a command to end after an interrupt
constexpr milliseconds kRetry(500);      // until a missing directory is looked for again
constexpr milliseconds kForever(-1);

// Returns the directory of a file and, if the file is a link, the directory of its target.
void AddDirectoriesOf(const std::filesystem::path& file, std::set<std::string>* directories) {
  std::error_code ignored;
  const std::filesystem::path directory = file.has_parent_path() ? file.parent_path() : ".";
  const std::filesystem::path of_target = std::filesystem::weakly_canonical(file, ignored).parent_path();
  directories->insert(directory);
  if (of_target != std::filesystem::weakly_canonical(directory, ignored)) directories->insert(of_target);
}

// Returns the directories of all scripts and .cfg files that the command reads.
std::set<std::string> DirectoriesOf(const CommandLine& command) {
  std::set<std::string> directories;
  const auto add = [&directories](const std::string& target) {
    if (std::filesystem::is_directory(target)) {
      directories.insert(target);
    } else if (!target.empty()) {
      AddDirectoriesOf(target, &directories);
    }
  };
  for (const std::string& target : command.targets) add(target);
  const std::string file_key = kFileOption + LengthOf(kOptionPrefix);
  for (const auto& [key, value] : command.options) {
    const bool is_file = key.size() >= file_key.size() && key.substr(key.size() - file_key.size()) == file_key;
    if (key == kConfigDirOption || is_file) add(value);
  }
  Remarks ignored;
  for (const CfgFile& file : ReadConfiguration(command.options, &ignored)) {
    add(file.path);
    add(file.Value(file_key));
  }
  return directories;
}

std::string Joined(const std::set<std::string>& texts) {
  std::string joined;
  for (const std::string& text : texts) joined += (joined.empty() ? "" : ", ") + text;
  return joined;
}

class Repeater {
 public:
  Repeater(const ReadCommand& read_command, const std::function<bool(const CommandLine&)>& execute)
      : read_command_(read_command), execute_(execute) {
    sigset_t watched;
    sigemptyset(&watched);
    for (const int signal : {SIGINT, SIGTERM, SIGCHLD}) sigaddset(&watched, signal);
    sigprocmask(SIG_BLOCK, &watched, &mask_before_);
    signals_ = signalfd(-1, &watched, SFD_CLOEXEC | SFD_NONBLOCK);
    if (signals_ < 0) throw std::system_error(errno, std::generic_category(), "cannot wait for signals");
  }
  ~Repeater() { close(signals_); }
  Repeater(const Repeater&) = delete;
  Repeater& operator=(const Repeater&) = delete;

  int Run() {
    while (true) {
      StartChild();
      const std::set<std::string> changed = WaitForChange();
      StopChild();
      if (ends_) return status_;
      Complain(Joined(changed) + (changed.size() == 1 ? " has changed" : " have changed"));
    }
  }

 private:
  enum Awaited : nfds_t { kSignals = 1, kFilesToo = 2 };

  void StartChild() {
    const std::optional<CommandLine> command = read_command_(&status_);
    if (!command) return;
    Watch(DirectoriesOf(*command));
    const pid_t self = getpid();
    child_ = fork();
    if (child_ < 0) throw std::system_error(errno, std::generic_category(), "cannot start a process");
    if (child_ > 0) return;
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != self) _exit(EXIT_FAILURE);
    sigprocmask(SIG_SETMASK, &mask_before_, nullptr);
    bool success = false;
    Attempt([&] { success = execute_(*command); });
    std::cout.flush();
    _exit(success ? EXIT_SUCCESS : EXIT_FAILURE);
  }

  void Watch(const std::set<std::string>& directories) {
    missing_.clear();
    for (const std::string& directory : directories) {
      if (files_.Add(directory)) continue;
      Complain("cannot watch " + directory + ": " + strerror(errno));
      missing_.insert(directory);
    }
  }

  // Returns early at the end.
  std::set<std::string> WaitForChange() {
    std::set<std::string> changed;
    for (bool told = false; !ends_ && changed.empty();) {
      if (child_ < 0 && !told) {
        Complain("watching " + Joined(files_.Directories()) + ": interrupt to end");
        told = true;
      }
      Wait(kFilesToo, missing_.empty() ? kForever : kRetry);
      changed = files_.Changed();
      for (const std::string& directory : missing_) {
        if (files_.Add(directory)) changed.insert(directory);
      }
    }
    for (auto quiet_since = Clock::now(); !ends_ && Clock::now() - quiet_since < kQuiet;) {
      Wait(kFilesToo, kQuiet);
      const std::set<std::string> more = files_.Changed();
      if (!more.empty()) quiet_since = Clock::now();
      changed.insert(more.begin(), more.end());
    }
    return changed;
  }

  // After an interrupt the child has had the signal already, and gets time to act on it.
  void StopChild() {
    if (child_ >= 0 && !ends_) kill(child_, SIGINT);
    for (const auto start = Clock::now(); child_ >= 0 && !ends_ && Clock::now() - start < kPatience;) {
      Wait(kSignals, kQuiet);
    }
    if (child_ >= 0 && !ends_) kill(child_, SIGTERM);
    while (child_ >= 0) Wait(kSignals, kForever);
  }

  // Returns after a signal, after a change if files are awaited too, and after `time`.
  void Wait(Awaited awaited, milliseconds time) {
    std::array<pollfd, 2> ready{{{signals_, POLLIN, 0}, {files_.descriptor(), POLLIN, 0}}};
    poll(ready.data(), awaited, static_cast<int>(time.count()));
    for (signalfd_siginfo signal{}; read(signals_, &signal, sizeof signal) == sizeof signal;) {
      if (signal.ssi_signo == SIGCHLD) {
        Reap();
      } else {
        ends_ = true;
        if (child_ >= 0) kill(child_, static_cast<int>(signal.ssi_signo));
      }
    }
  }

  void Reap() {
    int status = 0;
    if (child_ < 0 || waitpid(child_, &status, WNOHANG) != child_) return;
    child_ = -1;
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : EXIT_FAILURE;
    // The reader of the output is gone.
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGPIPE) ends_ = true;
  }

  const ReadCommand& read_command_;
  const std::function<bool(const CommandLine&)>& execute_;
  FileWatch files_;
  std::set<std::string> missing_;  // directories to watch that do not exist
  sigset_t mask_before_{};
  int signals_ = -1;
  pid_t child_ = -1;
  int status_ = EXIT_FAILURE;
  bool ends_ = false;
};

}  // namespace

int RepeatOnChange(const ReadCommand& read_command, const std::function<bool(const CommandLine&)>& execute) {
  return Repeater(read_command, execute).Run();
}

}  // namespace standin
