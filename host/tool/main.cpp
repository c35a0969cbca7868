// rubruf-host: runs, checks and watches the scripts of the plug-in without the real host.

#include <cstdlib>
#include <exception>
#include <iostream>

#include "host/tool/check.h"
#include "host/tool/command_line.h"
#include "host/tool/options_listing.h"
#include "host/tool/run.h"

namespace {

bool Execute(const standin::CommandLine& command) {
  switch (command.action) {
    case standin::Action::kRun:
      return Run(command);
    case standin::Action::kCheck:
      return Check(command);
    case standin::Action::kOptions:
      std::cout << ListOptions(command.options, command.format) << std::flush;
      return std::cout.good();
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Execute(standin::ParseCommandLine(argc, argv)) ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const std::exception& error) {
    std::cerr << "rubruf-host: " << error.what() << std::endl;
    return EXIT_FAILURE;
  }
}
