// rubruf-host: loads the plug-in, collects from its sources in rounds, and prints what arrives.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <thread>

#include "host/standin/collector.h"
#include "host/standin/command_line.h"
#include "host/standin/handles.h"
#include "host/standin/json_writer.h"
#include "host/standin/output.h"
#include "host/standin/plugin.h"
#include "utils/log/log.h"

namespace standin {
namespace {

std::atomic<bool> interrupted{false};

// The first signal is a wish to end after the running collection; a second one ends the process, whatever a script
// does.
extern "C" void OnInterrupt(int signal) {
  interrupted = true;
  std::signal(signal, SIG_DFL);
}

// Looks for an interrupt in small steps: a signal may reach any thread, so it need not wake this one.
void Pause(std::chrono::duration<double> time) {
  using Clock = std::chrono::steady_clock;
  const std::chrono::duration<double> kStep(0.02);
  for (const auto start = Clock::now(); !interrupted && Clock::now() - start < time;) {
    std::this_thread::sleep_for(std::min(kStep, time));
  }
}

void Complain(const std::string& message) { std::cerr << "rubruf-host: " << message << std::endl; }

// Why `collection` is not complete, and what to do about it.
std::string Cause(const Collection& collection, const tev_data_serializer_t& buffer) {
  if (collection.oversized) {
    return "a token of " + std::to_string(collection.oversized->bytes()) + " bytes does not fit the buffer of " +
           std::to_string(buffer.capacity) + " bytes: raise --buffer-bytes";
  }
  const std::string after = " after " + std::to_string(collection.tokens.size()) + " tokens";
  if (collection.status == TEV_PROGRESS_REFUSED) return "the plug-in makes no headway" + after;
  if (!collection.stuck()) return "the script could not be run: its error stands above";
  return "the collection failed" + after +
         ", at a value that cannot be sent: return a list or dictionary of str, int, float, bool, dictionaries, and "
         "lists that are not directly in a list";
}

// Prints what one collection brought, and complains when it is not complete. True when it is.
bool Show(const Collection& collection, const std::string& tag, const tev_data_serializer_t& buffer, bool as_tokens,
          Output& output) {
  try {
    std::string lines;
    for (const Token& token : collection.tokens) {
      if (as_tokens) lines += ToLine(token) + '\n';
    }
    output.Write(lines);
    if (!collection.complete()) throw BrokenStream(Cause(collection, buffer));
    const std::string json = ToJsonLine(tag, collection.tokens);
    if (!as_tokens) output.Write(json + '\n');
    return true;
  } catch (const BrokenStream& error) {
    Complain(tag + ": " + error.what());
    return false;
  }
}

// True when every collection succeeded.
bool RunRounds(tev_event_provider_t* provider, const tev_source_array_t& array, const CommandLine& command,
               Output& output) {
  tev_data_serializer_t buffer(static_cast<size_t>(command.buffer_bytes));
  bool success = true;
  for (int64_t round = 0; command.count == 0 || round < command.count; ++round) {
    if (round > 0) Pause(std::chrono::duration<double>(command.interval));
    for (uint32_t index = 0; index < array.sources.size() && !interrupted; ++index) {
      const Collection collection = Collect(provider, index, &buffer);
      success &= Show(collection, array.sources[index]->tag, buffer, command.tokens, output);
      if (collection.stuck()) {
        throw std::runtime_error("the provider holds on to that collection: no other one is possible");
      }
    }
    if (interrupted) break;
  }
  return success;
}

struct Finalize {
  void operator()(tev_event_provider_t* provider) const { provider->finalize(provider); }
};

// The life of a plug-in in a host process, from loading to unloading.
bool Run(const CommandLine& command) {
  Output output;
  const Plugin plugin(command.library);
  if (!std::getenv("TEV_API_LOG_LEVEL")) {
    plugin.Symbol<decltype(&::tev_init_stderr_logger)>("tev_init_stderr_logger")(TEV_LOG_WARNING);
  }
  std::signal(SIGINT, OnInterrupt);
  std::signal(SIGTERM, OnInterrupt);

  tev_event_provider_t* const provider = plugin.Construct(HostOptions(plugin, command.options).get());
  if (!provider) throw std::runtime_error("construct_event_provider refused the options: the reason stands above");
  tev_type_system_t type_system;
  if (!provider->initialize(provider, &type_system)) {
    throw std::runtime_error("initialize failed: the reason stands above");
  }
  const std::unique_ptr<tev_event_provider_t, Finalize> ready(provider);
  const SourceArray sources(provider->get_sources(provider));
  if (!sources) throw std::runtime_error("get-sources failed: a script has no tag, or the reason stands above");
  return RunRounds(provider, *sources, command, output);
}

}  // namespace
}  // namespace standin

int main(int argc, char** argv) {
  const standin::CommandLine command = standin::ParseCommandLine(argc, argv);
  try {
    return standin::Run(command) ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const std::exception& error) {
    standin::Complain(error.what());
    return EXIT_FAILURE;
  }
}
