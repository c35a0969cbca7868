// The check, from the configuration to the growth of memory. What is looked for inside Python is in checker.py.

#include "host/tool/check.h"

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "host/standin/hosted_provider.h"
#include "host/standin/python_module.h"
#include "host/tool/check_report.h"
#include "host/tool/checker_source.h"
#include "host/tool/growth.h"
#include "host/tool/interrupt.h"
#include "host/tool/output.h"

namespace standin {
namespace {

using nlohmann::json;

void Add(const json& found, CheckedScript* checked) {
  checked->errors.Add(Findings{found["errors"][0], found["errors"][1]});
  checked->warnings.Add(Findings{found["warnings"][0], found["warnings"][1]});
}

bool IsUtf8(const std::string& text) {
  try {
    static_cast<void>(json(text).dump());
    return true;
  } catch (const json::type_error&) {
    return false;
  }
}

std::string Shown(const json& value) { return value.dump(-1, ' ', false, json::error_handler_t::replace); }

// The options choose one of three ways to configure scripts; in two of them .cfg files do it.
bool ConfiguredByFiles(const OptionList& options) {
  std::map<std::string, std::string> values;
  for (const auto& [key, value] : options) values[key] = value;
  return values.count("python-import-config-dir") > 0 || values["enable-provider"].find("python") == std::string::npos;
}

class Checker {
 public:
  // Starts Python and imports the scripts. The plug-in must outlive the object.
  Checker(const Plugin& plugin, const OptionList& options)
      : scripts_(Checked(Survey(plugin, options), options)), module_(plugin, "rubruf_checker", kCheckerSource) {
    for (const CheckedScript& checked : scripts_) {
      const json request = {{"path", checked.script.path}, {"function", checked.script.function}};
      module_.Call("bind", Shown(request));
    }
  }

  // Has the provider bind the scripts. False, after a complaint, when it fails.
  bool Start(HostedProvider& provider) {
    bool started = true;
    try {
      provider.Initialize();
      NameSources(provider.Sources());
    } catch (const std::runtime_error& error) {
      std::cerr << "rubruf-host: " << error.what() << std::endl;
      started = false;
    }
    const json findings = AddFindings("release");
    for (size_t i = 0; i < scripts_.size(); ++i) scripts_[i].sound = findings[i]["errors"][0] == 0;
    return started;
  }

  // Collects from each script `times` times, as long as that is without a fault.
  void Collect(HostedProvider& provider, int64_t times) {
    for (uint32_t index = 0; index < scripts_.size(); ++index) {
      CheckedScript& checked = scripts_[index];
      Growth blocks(static_cast<size_t>(times));
      Growth resident(static_cast<size_t>(times));
      // Script by script: in rounds, what one leaves to be released by the next would show as growth of the one.
      for (int64_t i = 0; i < times && checked.sound && !Interrupted(); ++i) {
        if (!CollectOnce(provider, index)) return;
        if (times > 1) Measure(&blocks, &resident);
      }
      Judge(blocks, 1, "the interpreter's memory", "blocks", &checked);
      Judge(resident, 1024, "resident memory", "KiB", &checked);
    }
    AddFindings("threads");
  }

  const std::vector<CheckedScript>& scripts() const { return scripts_; }

 private:
  // Adds what a function of checker.py tells of each script, and returns it.
  json AddFindings(const char* function) {
    json findings = json::parse(module_.Call(function, ""));
    for (size_t i = 0; i < scripts_.size(); ++i) Add(findings[i], &scripts_[i]);
    return findings;
  }

  static std::vector<CheckedScript> Checked(std::vector<ConfiguredScript> scripts, const OptionList& options) {
    const char* const configuration = ConfiguredByFiles(options) ? "its .cfg file" : "the options";
    std::vector<CheckedScript> checked;
    for (ConfiguredScript& script : scripts) {
      CheckedScript& added = checked.emplace_back();
      added.tag_origin = script.tag_configured() ? configuration : "get_tag or the path";
      added.script = std::move(script);
      for (const std::string& argument : added.script.arguments) {
        if (!IsUtf8(argument))
          added.errors.Add(added.script.path + ": the argument " + Shown(argument) + " is not UTF-8");
      }
    }
    return checked;
  }

  void NameSources(const std::vector<std::string>& sources) {
    std::map<std::string, std::string> paths;
    for (size_t i = 0; i < scripts_.size() && i < sources.size(); ++i) {
      CheckedScript& checked = scripts_[i];
      checked.source = sources[i];
      if (!checked.script.tag_configured()) {
        checked.tag_origin = checked.source == checked.script.tag ? "a hash of the path" : "get_tag";
      }
      const auto [first, is_new] = paths.emplace(checked.source, checked.script.path);
      if (is_new) continue;
      checked.errors.Add(checked.script.path + ": " + first->second + " has the same tag: give each script its own");
    }
  }

  // False when the provider is stuck.
  bool CollectOnce(HostedProvider& provider, uint32_t index) {
    CheckedScript& checked = scripts_[index];
    const Collection collection = provider.Collect(index, &buffer_);
    const json found = json::parse(module_.Call("take", ""));
    ++checked.collections;
    checked.tokens = collection.tokens.size();
    if (!found.is_null()) {
      checked.seconds += found["seconds"].get<double>();
      // A warning comes again with each collection.
      checked.sound = found["errors"][0] == 0;
      if (checked.collections == 1 || !checked.sound) Add(found, &checked);
    }
    if (found.is_null() || !collection.complete()) {
      checked.errors.Add(checked.script.path + ": the collection failed, and no fault was found in its result");
      checked.sound = false;
    }
    return !collection.stuck();
  }

  void Measure(Growth* blocks, Growth* resident) const {
    malloc_trim(0);  // free pages, which would take in what a script keeps, and hide it
    const json amounts = json::parse(module_.Call("memory", ""));
    blocks->Add(amounts[0]);
    resident->Add(amounts[1]);
  }

  static void Judge(const Growth& growth, double unit_size, const char* what, const char* unit,
                    CheckedScript* checked) {
    const std::optional<double> per_collection = growth.PerCollection();
    if (!per_collection) return;
    char amount[32];
    snprintf(amount, sizeof amount, "%.1f", *per_collection / unit_size);
    checked->errors.Add(checked->script.path + ": " + what + " keeps growing, by " + amount + " " + unit +
                        " per collection: something keeps what each call makes, or keys are ever new");
  }

  std::vector<CheckedScript> scripts_;
  PythonModule module_;
  tev_data_serializer_t buffer_;
};

bool WantsColour() {
  const char* no_colour = std::getenv("NO_COLOR");
  return isatty(STDOUT_FILENO) == 1 && (!no_colour || *no_colour == '\0');
}

}  // namespace

bool Check(const CommandLine& command) {
  const bool colour = WantsColour();
  Output output;
  const Plugin plugin(command.library);
  SetLogLevel(plugin, command.log_level);
  CatchInterrupts();
  Checker checker(plugin, command.options);
  HostedProvider provider(plugin, command.options);
  const bool started = checker.Start(provider);
  if (started) checker.Collect(provider, command.repeat);
  const auto& scripts = checker.scripts();
  output.Write(ReportText(scripts, colour));
  return started && !Interrupted() &&
         std::all_of(scripts.begin(), scripts.end(), [](auto& checked) { return checked.errors.count == 0; });
}

}  // namespace standin
