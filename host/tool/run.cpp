// Rounds of one collection per source.

#include "host/tool/run.h"

#include <iostream>
#include <string>
#include <vector>

#include "host/standin/hosted_provider.h"
#include "host/standin/json_writer.h"
#include "host/tool/interrupt.h"
#include "host/tool/output.h"
#include "host/tool/statistics.h"

namespace standin {
namespace {

// Why `collection` is not complete, and what to do about it.
std::string Cause(const Collection& collection, const tev_data_serializer_t& buffer) {
  if (collection.oversized) {
    return "a token of " + std::to_string(collection.oversized->bytes()) + " bytes does not fit the buffer of " +
           std::to_string(buffer.capacity) + " bytes: raise --buffer-bytes";
  }
  const size_t count = collection.tokens.size();
  const std::string after = " after " + std::to_string(count) + (count == 1 ? " token" : " tokens");
  if (collection.status == TEV_PROGRESS_REFUSED) return "the plug-in makes no headway" + after;
  if (!collection.stuck()) return "the script could not be run: its error stands above";
  return "the collection failed" + after + ", at a value that cannot be sent: \"rubruf-host check\" names its place";
}

void Complain(const std::string& message) { std::cerr << "rubruf-host: " << message << std::endl; }

class Rounds {
 public:
  Rounds(const CommandLine& command, HostedProvider& provider, Output& output)
      : command_(command), provider_(provider), output_(output), sources_(provider.Sources()) {}

  // True when every collection succeeded.
  bool Run() {
    bool success = true;
    for (int64_t round = 0; !Ends() && (command_.count == 0 || round < command_.count); ++round) {
      if (round > 0) Pause(std::chrono::duration<double>(command_.interval));
      for (uint32_t index = 0; index < sources_.size() && !Ends(); ++index) success &= CollectFrom(index);
    }
    if (command_.stats) std::cerr << statistics_.Table();
    return success;
  }

 private:
  bool Ends() const { return stuck_ || Interrupted(); }

  bool CollectFrom(uint32_t index) {
    const std::string& source = sources_[index];
    const Collection collection = provider_.Collect(index, &buffer_);
    if (command_.stats) {
      std::cerr << CostLine(source, collection) << std::endl;
      statistics_.Add(source, collection);
    }
    const bool success = Show(source, collection);
    stuck_ = collection.stuck();
    if (stuck_) Complain("the provider holds on to that collection: no other one is possible");
    return success;
  }

  // Prints what one collection brought, and complains when it is not complete. True when it is.
  bool Show(const std::string& source, const Collection& collection) {
    const bool as_tokens = command_.format == Format::kTokens;
    try {
      std::string lines;
      for (const Token& token : collection.tokens) {
        if (as_tokens) lines += ToLine(token) + '\n';
      }
      output_.Write(lines);
      if (!collection.complete()) throw BrokenStream(Cause(collection, buffer_));
      const std::string json = ToJsonLine(source, collection.tokens);
      if (!as_tokens) output_.Write((command_.format == Format::kPretty ? Indented(json) : json) + '\n');
      return true;
    } catch (const BrokenStream& error) {
      Complain(source + ": " + error.what());
      return false;
    }
  }

  const CommandLine& command_;
  HostedProvider& provider_;
  Output& output_;
  const std::vector<std::string> sources_;
  tev_data_serializer_t buffer_{static_cast<size_t>(command_.buffer_bytes)};
  Statistics statistics_;
  bool stuck_ = false;
};

}  // namespace

bool Run(const CommandLine& command) {
  Output output;
  const Plugin plugin(command.library);
  SetLogLevel(plugin, command.log_level);
  CatchInterrupts();
  HostedProvider provider(plugin, command.options);
  provider.Initialize();
  return Rounds(command, provider, output).Run();
}

}  // namespace standin
