// The command line of rubruf-host.

#ifndef RUBRUF_HOST_STANDIN_COMMAND_LINE_H_
#define RUBRUF_HOST_STANDIN_COMMAND_LINE_H_

#include <cstdint>
#include <string>

#include "host/standin/host_options.h"

namespace standin {

struct CommandLine {
  std::string library;
  OptionList options;  // for the plug-in
  int64_t count = 1;   // of rounds; 0: without end
  double interval = 1;
  int64_t buffer_bytes = 65536;
  bool tokens = false;
};

// Ends the process itself on --help (status 0) and on a usage error (status 2).
CommandLine ParseCommandLine(int argc, char** argv);

}  // namespace standin

#endif  // RUBRUF_HOST_STANDIN_COMMAND_LINE_H_
