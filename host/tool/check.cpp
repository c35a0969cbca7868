// The command `check`: calls every script and reports its faults. The part that runs in Python is in rubruf_checker/.

#include "host/tool/check.h"

#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>

#include "host/standin/hosted_provider.h"
#include "host/tool/check_report.h"
#include "host/tool/checker.h"
#include "host/tool/configuration.h"
#include "host/tool/growth.h"
#include "host/tool/log_setup.h"
#include "host/tool/printable.h"
#include "host/tool/supervisor.h"

namespace standin {
namespace {

void Add(const Checked& found, CheckedScript* checked) {
  checked->errors.Add(found.errors);
  checked->warnings.Add(found.warnings);
}

class Check {
 public:
  // Starts Python and imports the scripts. The plug-in must outlive the object.
  Check(const Plugin& plugin, const CommandLine& command) : command_(command), report_(WantsColour()) {
    Tally& tally = SharedTally();
    Remarks remarks = command.remarks;
    remarks.notes.insert(remarks.notes.end(), command.told.begin(), command.told.end());
    const std::vector<CfgFile> files = ReadConfiguration(command.options, &remarks);
    if (tally.workers++ == 0) report_.Add(remarks);
    scripts_ = Configured(Survey(plugin, command.options), files);
    tally.scripts = static_cast<uint32_t>(scripts_.size());
    SetUpLog(plugin, command);
    checker_.emplace(plugin);
    for (size_t i = 0; i < scripts_.size(); ++i) {
      tally.importing = static_cast<int>(i);
      checker_->Bind(scripts_[i].script, tally.is_lost_at_import.at(i));
    }
    tally.importing = -1;
  }

  // Initializes the provider, which binds the scripts. Returns false after a complaint if that fails.
  bool Start(HostedProvider& provider) {
    const bool started = Attempt([&] {
      const Step step("get_app_id or get_tag of a script");
      provider.Initialize();
      NameSources(provider.Sources());
    });
    const std::vector<Checked> findings = checker_->Release();
    for (size_t i = 0; i < scripts_.size(); ++i) {
      Add(findings[i], &scripts_[i]);
      scripts_[i].sound = findings[i].errors.count == 0 && !SharedTally().is_lost_at_import.at(i);
    }
    return started;
  }

  // Collects from each script until its first fault, and reports what was found. Skips the scripts that an earlier
  // worker has reported. If the provider could not be initialized, it only reports.
  void Collect(HostedProvider* provider) {
    const std::vector<uint32_t> wanted = Wanted();
    for (size_t i = SharedTally().reported; i < wanted.size(); ++i) {
      const uint32_t index = wanted[i];
      CheckedScript& checked = scripts_[index];
      report_.Begin(checked);
      if (provider) CollectFrom(*provider, index, command_.repeat);
      report_.Complete(checked);
    }
    report_.SumUp();
  }

 private:
  static bool WantsColour() {
    const char* no_colour = std::getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) == 1 && (!no_colour || *no_colour == '\0');
  }

  static std::vector<CheckedScript> Configured(std::vector<ConfiguredScript> scripts,
                                               const std::vector<CfgFile>& files) {
    const bool by_files = !scripts.empty() && files.size() == scripts.size();
    const char* const configuration = by_files ? "its .cfg file" : "the options";
    std::vector<CheckedScript> checked;
    for (ConfiguredScript& script : scripts) {
      CheckedScript& added = checked.emplace_back();
      added.tag_origin = script.tag_configured() ? configuration : "get_tag or the path";
      added.script = std::move(script);
      if (by_files) added.cfg_path = files[checked.size() - 1].path;
      for (const std::string& argument : added.script.arguments) {
        if (!IsUtf8(argument)) added.errors.Add(added.script.path + ": the argument " + argument + " is not UTF-8");
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

  // Returns the indexes of the scripts to report: all of them while their sources are unknown.
  std::vector<uint32_t> Wanted() {
    std::vector<uint32_t> wanted;
    std::vector<std::string> sources;
    for (const CheckedScript& checked : scripts_) {
      const auto index = static_cast<uint32_t>(sources.size());
      if (checked.source.empty() || Wants(command_, checked.source)) wanted.push_back(index);
      sources.push_back(checked.source);
    }
    if (wanted.empty() && !command_.only.empty()) report_.Add({{NoSource(command_.only, sources)}, {}, {}});
    SharedTally().scripts = static_cast<uint32_t>(wanted.size());
    return wanted;
  }

  // Finishes one script before the next. In rounds, memory of one script that the next one releases would count as
  // growth of the first.
  void CollectFrom(HostedProvider& provider, uint32_t index, int64_t times) {
    CheckedScript& checked = scripts_[index];
    Growth blocks(static_cast<size_t>(times));
    Growth resident(static_cast<size_t>(times));
    for (int64_t i = 0; i < times && checked.sound && !stuck_ && !Interrupted(); ++i) {
      CollectOnce(provider, index);
      if (times < int64_t{Growth::kLeast}) continue;
      malloc_trim(0);  // because free pages would hide the memory that a script keeps
      const Checker::Memory memory = checker_->MemoryInUse();
      blocks.Add(memory.blocks);
      resident.Add(memory.resident_bytes);
    }
    Judge(blocks, 1, "the interpreter's memory", "blocks", &checked);
    Judge(resident, 1024, "resident memory", "KiB", &checked);
    const Step step(checked.Name() + ", which has threads");
    Add(checker_->Threads(index), &checked);
  }

  void CollectOnce(HostedProvider& provider, uint32_t index) {
    CheckedScript& checked = scripts_[index];
    const Step step(checked.Name());
    const Collection collection = provider.Collect(index, &buffer_);
    stuck_ = collection.stuck();
    const std::optional<Checked> found = checker_->Take();
    ++checked.collections;
    checked.tokens = collection.tokens.size();
    if (found) {
      checked.seconds += found->seconds;
      // A warning comes again with each collection.
      checked.sound = found->errors.count == 0;
      if (checked.collections == 1 || !checked.sound) Add(*found, &checked);
    }
    if (!found || !collection.complete()) {
      checked.errors.Add(checked.script.path + ": the collection failed, and no fault was found in its result");
      checked.sound = false;
    }
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

  const CommandLine& command_;
  Report report_;
  std::vector<CheckedScript> scripts_;
  std::optional<Checker> checker_;
  tev_data_serializer_t buffer_;
  bool stuck_ = false;
};

}  // namespace

bool CheckScripts(const CommandLine& command) {
  const Plugin plugin(command.library);
  Check check(plugin, command);
  std::optional<HostedProvider> provider;
  return Conclude([&] {
    const bool started = Attempt([&] { provider.emplace(plugin, command.options); }) && check.Start(*provider);
    check.Collect(started ? &*provider : nullptr);
    return started && !Interrupted() && SharedTally().errors == 0;
  });
}

}  // namespace standin
