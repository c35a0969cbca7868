// The command `run`: collects from each source in rounds and prints what arrives.

#include "host/tool/run.h"

#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/standin/hosted_provider.h"
#include "host/standin/json_writer.h"
#include "host/tool/checker.h"
#include "host/tool/configuration.h"
#include "host/tool/log_setup.h"
#include "host/tool/output.h"
#include "host/tool/place.h"
#include "host/tool/printable.h"
#include "host/tool/statistics.h"
#include "host/tool/supervisor.h"
#include "host/tool/survey.h"
#include "utils/log/log.h"

namespace standin {
namespace {

// Explains why `collection` is not complete, and what to do about it.
std::string Cause(const Collection& collection, const tev_data_serializer_t& buffer) {
  if (collection.oversized) {
    return "a token of " + std::to_string(collection.oversized->bytes()) + " bytes does not fit the buffer of " +
           std::to_string(buffer.capacity) + " bytes: raise --buffer-bytes";
  }
  const size_t count = collection.tokens.size();
  if (collection.status == TEV_PROGRESS_REFUSED) {
    return "the plug-in makes no headway after " + std::to_string(count) + (count == 1 ? " token" : " tokens");
  }
  if (!collection.stuck()) return "the script could not be run: its error stands above";
  return PlaceBehind(collection.tokens) +
         " cannot be sent: \"rubruf-host check\" tells why, with --repeat N where it is so " + "only now and then";
}

class Rounds {
 public:
  Rounds(const Plugin& plugin, const CommandLine& command, const std::vector<ConfiguredScript>& scripts,
         HostedProvider& provider, Output& output)
      : plugin_(plugin), command_(command), provider_(provider), output_(output), sources_(provider.Sources()) {
    std::map<std::string, std::string> paths;
    for (size_t i = 0; i < sources_.size(); ++i) {
      const std::string path = i < scripts.size() ? scripts[i].path : "";
      if (Wants(command, sources_[i])) wanted_.push_back(static_cast<uint32_t>(i));
      names_.push_back(sources_[i] + (path.empty() ? "" : ": " + path));
      const auto [first, is_new] = paths.emplace(sources_[i], path);
      if (!is_new)
        Complain("warning: " + names_[i] + ": " + first->second + " has the same tag: give each script its own");
    }
  }

  // Returns true if there was a collection and all of them succeeded.
  bool Run() {
    if (wanted_.empty()) throw std::runtime_error(NoSource(command_.only, sources_));
    bool success = true;
    for (int64_t round = 0; !Ends() && (command_.count == 0 || round < command_.count); ++round) {
      if (round > 0) Pause(std::chrono::duration<double>(command_.interval));
      for (const uint32_t index : wanted_) success &= Ends() || CollectFrom(index);
    }
    if (command_.stats) std::cerr << statistics_.Table();
    if (collections_ == 0) Complain("interrupted before anything was collected");
    return success && collections_ > 0;
  }

 private:
  bool Ends() const { return stuck_ || Interrupted(); }

  bool CollectFrom(uint32_t index) {
    const Collection collection = Collected(index);
    ++collections_;
    if (command_.stats) {
      std::cerr << CostLine(Printable(sources_[index]), collection) << std::endl;
      statistics_.Add(Printable(sources_[index]), collection);
    }
    const bool success = Show(index, collection);
    stuck_ = collection.stuck();
    if (stuck_) Complain("the provider holds on to that collection: no other one is possible");
    return success;
  }

  Collection Collected(uint32_t index) {
    if (*plugin_.Symbol<decltype(&::tev_log_level)>("tev_log_level") >= TEV_LOG_DEBUG) {
      plugin_.Symbol<decltype(&::_tev_log)>("_tev_log")(TEV_LOG_DEBUG, "[rubruf-host] collecting %s",
                                                        Printable(names_[index]).c_str());
    }
    const Step step(names_[index]);
    return provider_.Collect(index, &buffer_);
  }

  // Prints the data of one collection, and complains if it is not complete. Returns whether it is complete.
  bool Show(uint32_t index, const Collection& collection) {
    const bool as_tokens = command_.format == Format::kTokens;
    try {
      std::string lines;
      for (const Token& token : collection.tokens) {
        if (as_tokens) lines += ToLine(token) + '\n';
      }
      output_.Write(lines);
      if (!collection.complete()) throw BrokenStream(Cause(collection, buffer_));
      const std::string json = ToJsonLine(sources_[index], collection.tokens);
      if (!as_tokens) output_.Write((command_.format == Format::kPretty ? Readable(json) : json) + '\n');
      return true;
    } catch (const BrokenStream& error) {
      Complain(names_[index] + ": " + error.what());
      return false;
    }
  }

  std::string Readable(const std::string& json) const {
    const size_t columns = output_.Columns();
    return columns == 0 ? Indented(json) : Shortened(Indented(json), columns);
  }

  const Plugin& plugin_;
  const CommandLine& command_;
  HostedProvider& provider_;
  Output& output_;
  const std::vector<std::string> sources_;
  std::vector<uint32_t> wanted_;    // the indexes of the sources to collect from
  std::vector<std::string> names_;  // of the sources, with the scripts' paths
  tev_data_serializer_t buffer_{static_cast<size_t>(command_.buffer_bytes)};
  Statistics statistics_;
  size_t collections_ = 0;
  bool stuck_ = false;
};

// Names the files and options that made the plug-in refuse the options. The plug-in's messages do not always name them.
void ExplainRefusal(const OptionList& options) {
  Remarks remarks;
  ReadConfiguration(options, &remarks);
  for (const auto* texts : {&remarks.errors, &remarks.warnings, &remarks.notes}) {
    for (const std::string& text : *texts) Complain(text);
  }
}

// Names the script that kept the provider from starting. The plug-in's messages do not always name it. Always returns
// false, so that the caller can return the result.
bool ExplainStart(const Plugin& plugin, const std::vector<ConfiguredScript>& scripts) {
  Checker checker(plugin);
  for (const ConfiguredScript& script : scripts) checker.Bind(script);
  for (const Checked& checked : checker.Release()) {
    for (const std::string& error : checked.errors.listed) Complain(error);
  }
  return false;
}

}  // namespace

bool Run(const CommandLine& command) {
  Output output;
  const Plugin plugin(command.library);
  const std::vector<ConfiguredScript> scripts = Survey(plugin, command.options);
  SetUpLog(plugin, command);
  if (scripts.empty()) ExplainRefusal(command.options);
  for (const std::string& told : command.told) Complain(told);
  HostedProvider provider(plugin, command.options);
  return Conclude([&] {
    const bool started = Attempt([&] {
      const Step step("the import, get_app_id or get_tag of a script, which \"rubruf-host check\" names");
      provider.Initialize();
    });
    if (!started) return ExplainStart(plugin, scripts);
    return Rounds(plugin, command, scripts, provider, output).Run();
  });
}

}  // namespace standin
