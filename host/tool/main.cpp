// rubruf-host: runs, checks and watches the scripts of the plug-in without the real host.

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <iostream>
#include <optional>

#include "host/tool/check.h"
#include "host/tool/check_report.h"
#include "host/tool/command_line.h"
#include "host/tool/options_listing.h"
#include "host/tool/repeater.h"
#include "host/tool/run.h"
#include "host/tool/supervisor.h"

namespace {

using standin::Complain;

// What is closed would become the descriptor of the next file that is opened.
void OpenStandardStreams() {
  for (const int standard : {STDIN_FILENO, STDERR_FILENO}) {
    if (fcntl(standard, F_GETFD) >= 0) continue;
    const int null = open("/dev/null", O_RDWR);
    if (null == standard) continue;
    dup2(null, standard);
    close(null);
  }
}

// Scripts as authors want to see them: what they print comes at once, and nothing is written beside them.
void PrepareEnvironment() {
  setenv("PYTHONUNBUFFERED", "1", 0);
  setenv("PYTHONDONTWRITEBYTECODE", "1", 0);
}

bool Execute(const standin::CommandLine& command) {
  switch (command.action) {
    case standin::Action::kRun:
      return standin::Supervise([&] { return Run(command); },
                                [](auto& who, auto& how) {
                                  Complain(who + ": " + how);
                                  return false;
                                });
    case standin::Action::kCheck:
      return standin::Supervise([&] { return CheckScripts(command); }, standin::Report::TellLoss);
    case standin::Action::kOptions:
      std::cout << ListOptions(command.options, command.format) << std::flush;
      if (!std::cout) Complain("cannot write to standard output");
      return std::cout.good();
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  OpenStandardStreams();
  PrepareEnvironment();
  int status = EXIT_FAILURE;
  const auto read_command = [&](int* wrong) { return standin::ParseCommandLine(argc, argv, wrong); };
  standin::Attempt([&] {
    const std::optional<standin::CommandLine> command = read_command(&status);
    if (!command) return;
    if (command->watch) {
      status = standin::RepeatOnChange(read_command, Execute);
    } else {
      status = Execute(*command) ? EXIT_SUCCESS : EXIT_FAILURE;
    }
  });
  return status;
}
