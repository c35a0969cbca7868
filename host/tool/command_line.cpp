// The command-line parser, which translates flags into option keys of the plug-in.

#include "host/tool/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>

#include "host/standin/plugin.h"
#include "host/tool/configuration.h"
#include "host/tool/growth.h"
#include "host/tool/nearest.h"
#include "host/tool/targets.h"
#include "provider/option_keys.h"
#include "utils/log/log.h"

namespace standin {
namespace {

constexpr int kUsageError = 2;
constexpr double kMaxInterval = 1e9;

// Returns the path of the library beside the executable. If there is none, returns the bare name, for the loader to
// find.
std::string DefaultLibrary() {
  const auto beside = std::filesystem::read_symlink("/proc/self/exe").replace_filename("librubruf.so");
  return std::filesystem::exists(beside) ? beside.string() : "librubruf.so";
}

void Require(bool condition, const std::string& option, const std::string& message) {
  if (!condition) throw CLI::ValidationError(option, message);
}

OptionList::value_type SplitPair(const std::string& option, const std::string& text) {
  const size_t equals = text.find('=');
  Require(equals != 0 && equals != std::string::npos, option, "expected a name, = and a value, got " + text);
  return {text.substr(0, equals), text.substr(equals + 1)};
}

// Returns the value called `name`. If there is none, throws CLI::ValidationError, which lists the known names.
template <class Value>
Value Named(const std::string& option, const std::map<std::string, Value>& values, const std::string& name) {
  if (const auto found = values.find(name); found != values.end()) return found->second;
  std::string names;
  for (const auto& [known, value] : values) names += (names.empty() ? "" : ", ") + known;
  throw CLI::ValidationError(option, "expected one of " + names + ", got " + name);
}

// Converts the whole `text` to a number. CLI11's own conversion turns a number that is too large into the largest one.
template <class Number>
Number NumberFrom(const std::string& option, const std::string& text) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  Require(error != std::errc::result_out_of_range, option, "the number " + text + " is too large");
  Require(error == std::errc() && end == text.data() + text.size(), option, "expected a number, got " + text);
  return number;
}

bool Has(const OptionList& options, const std::string& key) {
  return std::any_of(options.begin(), options.end(), [&](const auto& option) { return option.first == key; });
}

std::string Versions() {
  const Plugin plugin(DefaultLibrary());
  const std::string python = plugin.Symbol<const char* (*)()>("Py_GetVersion")();
  return "rubruf " RUBRUF_VERSION ", Python " + python.substr(0, python.find(' '));
}

constexpr char kFooter[] = R"(Without a command, the options are those of run.
"rubruf-host COMMAND --help" tells more, with an example.

Exit status: 0 everything succeeded; 1 something failed, as told; 2 wrong usage.)";

constexpr char kRunFooter[] = R"(Example:
  rubruf-host run load.py --tag load --arg path=/proc/loadavg --count 3 --interval 0.5

Standard output carries one line of JSON per collection (or the tokens); what scripts print goes to standard error,
where the plug-in's messages and the statistics are. Without --log-level, TEV_API_LOG_LEVEL sets which messages are
shown, and warnings are where that is not set. An interrupt ends the rounds after the running collection; a second one ends the process at once.
With several scripts, script N's argument NAME also reaches every script as N-NAME.)";

constexpr char kCheckFooter[] = R"(Example:
  rubruf-host check load.py --tag load --repeat 100

Errors are what a host would stumble over; they make the exit status 1. Warnings are what it would misread. A faulty
result is kept from the plug-in, and its script is not collected from again, so that all scripts are checked in one run.
Memory keeps growing when, behind the first collections, it grows in nearly every part of the others.)";

constexpr char kOptionsFooter[] = R"(Example:
  rubruf-host options --script load.py --tag load --script disks.py

Prints KEY=VALUE a line, for the options dictionary of a host that configures the plug-in itself.)";

// Handles options in the order of the command line, because some belong to the --script before them.
class Parser {
 public:
  Parser() {
    app_.require_subcommand(1);
#if CLI11_VERSION_MAJOR * 100 + CLI11_VERSION_MINOR >= 205
    // Newer versions join the lines of a footer, examples included, into one paragraph.
    app_.get_formatter()->enable_footer_formatting(false);
#endif
    app_.footer(kFooter);
    app_.set_version_flag("--version", Versions, "Print the versions of rubruf and of the Python that it embeds");

    AddCommand("run", Action::kRun, "Collect in rounds and print what arrives", kRunFooter);
    AddLibraryOptions();
    AddRunOptions();

    AddCommand("check", Action::kCheck, "Collect from each script once and report every fault with its place",
               kCheckFooter);
    AddLibraryOptions();
    AddWatch();
    AddNumber(
        "--repeat", command_.repeat, "N",
        "Collect N times; from " + std::to_string(Growth::kLeast) + " on, name scripts whose memory keeps growing");

    AddCommand("options", Action::kOptions, "Print the host options that a command line stands for", kOptionsFooter);
    AddFormat({{"lines", Format::kDefault}, {"json", Format::kJson}},
              "lines (default): KEY=VALUE a line; json: one object");
  }

  // Throws CLI::ParseError, also for --help.
  CommandLine Parse(int argc, char** argv) {
    std::vector<std::string> arguments(argv + 1, argv + argc);
    const std::string first = arguments.empty() ? "-" : arguments[0];
    const bool names_command = first.empty() || (first[0] != '-' && !std::filesystem::exists(first));
    const bool asks = first == "--help" || first == "-h" || first == "--version";
    if (!names_command && !asks) arguments.insert(arguments.begin(), "run");
    if (names_command && !asks) RequireCommand(first);
    std::reverse(arguments.begin(), arguments.end());  // CLI11 expects the last argument first
    app_.parse(arguments);

    Require(command_.count >= 0, "--count", "must not be negative");
    Require(command_.interval >= 0 && command_.interval <= kMaxInterval, "--interval", "must be a number of seconds");
    Require(command_.buffer_bytes > 0, "--buffer-bytes", "must be positive");
    Require(command_.repeat > 0, "--repeat", "must be positive");
    AddTargets();
    Require(!scripts_.empty() || !options_.empty() || !overrides_.empty(), "nothing to collect",
            "name scripts, .cfg files or directories, or give an option");
    Require(scripts_.empty() || !Has(options_, kConfigDirOption), "--config-dir",
            "serves the scripts of its .cfg files, and no --script beside them");
    if (command_.library.empty()) command_.library = DefaultLibrary();
    command_.options = ScriptOptions(scripts_);
    command_.options.insert(command_.options.end(), options_.begin(), options_.end());
    command_.options.insert(command_.options.end(), overrides_.begin(), overrides_.end());
    return command_;
  }

  int Exit(const CLI::ParseError& error) const { return app_.exit(error) == 0 ? EXIT_SUCCESS : kUsageError; }

 private:
  using Handler = std::function<void(const std::string& value)>;

  // Options that are added after this call belong to the command.
  void AddCommand(const std::string& name, Action action, const std::string& description, const char* footer) {
    added_ = app_.add_subcommand(name, description);
    added_->footer(footer);
    added_->parse_complete_callback([=] { command_.action = action; });
    AddScriptOptions();
    AddPluginOptions();
  }

  CLI::Option* Add(const std::string& option, const char* type, const std::string& help, const Handler& handler) {
    return added_->add_option_function<std::string>(option, handler, help)->trigger_on_parse()->type_name(type);
  }

  void AddSetting(const std::string& key, const char* type, const char* help) {
    Add("--" + key, type, help, [=](auto& value) { LastScript("--" + key).settings.emplace_back(key, value); });
  }

  template <class Number>
  void AddNumber(const std::string& option, Number& field, const char* type, const std::string& help) {
    Add(option, type, help, [&field, option](auto& text) {
      field = NumberFrom<Number>(option, text);
    })->default_str(CLI::detail::to_string(field));
  }

  void AddFlag(const std::string& option, const char* help, const std::function<void()>& handler) {
    added_->add_flag_callback(option, handler, help)->trigger_on_parse();
  }

  void AddFormat(const std::map<std::string, Format>& formats, const std::string& help) {
    Add("--format", "FORMAT", help, [=](auto& name) { command_.format = Named("--format", formats, name); });
  }

  void RequireCommand(const std::string& name) {
    static const std::vector<std::string> kCommands = {"run", "check", "options"};
    if (std::find(kCommands.begin(), kCommands.end(), name) != kCommands.end()) return;
    throw CLI::ValidationError(name, "unknown command: " + Suggestion(name, kCommands));
  }

  // The plug-in reads a single directory itself. All other targets become options that describe scripts.
  void AddTargets() {
    command_.targets = targets_;
    if (targets_.size() == 1 && only_.empty() && pending_option_.empty() && scripts_.empty() &&
        std::filesystem::is_directory(targets_[0])) {
      options_.emplace_back(kConfigDirOption, targets_[0]);
      return;
    }
    std::vector<CfgFile> files;
    try {
      files = Chosen(ReadTargets(targets_, &command_.remarks, &command_.told));
    } catch (const std::runtime_error& error) {
      throw CLI::ValidationError(error.what());
    }
    Require(pending_option_.empty() || files.size() == 1, pending_option_,
            "belongs to one script: name just one, or give the option behind its --script");
    for (const CfgFile& file : files) {
      Script& script = scripts_.emplace_back(FromFile(file));
      script.settings.insert(script.settings.end(), pending_.settings.begin(), pending_.settings.end());
      script.arguments.insert(script.arguments.end(), pending_.arguments.begin(), pending_.arguments.end());
    }
  }

  // Returns the files that --only names. If no file has the tag, returns those without a tag, because their get_tag
  // may return it later.
  std::vector<CfgFile> Chosen(std::vector<CfgFile> files) {
    if (only_.empty()) return files;
    std::vector<CfgFile> named;
    std::vector<CfgFile> untagged;
    std::vector<std::string> names;
    for (CfgFile& file : files) {
      const std::string stem = std::filesystem::path(file.Value("file")).stem();
      const std::string tag = file.Value("tag").empty() ? stem : file.Value("tag");
      names.push_back(tag);
      if (only_ == tag || only_ == "dict_" + tag || only_ == stem) {
        named.push_back(std::move(file));
      } else if (file.Value("tag").empty()) {
        untagged.push_back(std::move(file));
      }
    }
    if (!named.empty()) return named;
    if (untagged.empty() || command_.action == Action::kOptions) throw CLI::ValidationError(NoSource(only_, names));
    command_.only = only_;
    return untagged;
  }

  Script& LastScript(const std::string& option) {
    if (scripts_.empty()) pending_option_ = option;
    return scripts_.empty() ? pending_ : scripts_.back();
  }

  void AddScriptOptions() {
    added_
        ->add_option(
            "WHAT", targets_,
            "Scripts, .cfg files and directories of .cfg files. A script with a .cfg file of its name beside it "
            "is configured by that")
        ->type_name("");
    Add("--only", "TAG", "Of WHAT, only the script with this tag or file name", [this](auto& tag) { only_ = tag; });
    Add("--script", "FILE", "Serve this script; may be repeated", [this](auto& file) {
      scripts_.push_back({{{"file", file}}, {}});
    });
    AddSetting("function", "NAME", "Collection function of the last script; default: collect");
    AddSetting("tag", "TAG", "Tag of the last script: its source is called dict_TAG");
    Add("--arg", "NAME=VALUE", "Argument of the last script; may be repeated",
        [this](auto& text) { LastScript("--arg").arguments.push_back(SplitPair("--arg", text)); });
    AddFlag("--force-sync", "Let the last script ask for a forced synchronisation",
            [this] { LastScript("--force-sync").settings.emplace_back("force-sync", "true"); });
    AddFlag("--own-module", "Load the last script as a module of its own",
            [this] { LastScript("--own-module").settings.emplace_back("own-module", "true"); });
    AddFlag("--tolerant", "Leave out what the last script returns and cannot be sent; its faults stop no other script",
            [this] { LastScript("--tolerant").settings.emplace_back("tolerant", "true"); });
  }

  void AddPluginOptions() {
    const auto add = [this](const char* option, const char* key, const char* type, const char* help) {
      Add(option, type, help, [=](auto& value) { options_.emplace_back(key, value); });
    };
    add("--config-dir", kConfigDirOption, "DIR", "Serve the scripts of the .cfg files in this directory");
    add("--enable-provider", kEnableProviderOption, "LIST", "Providers to enable; default with --script: python");
    add("--disable-provider", kDisableProviderOption, "LIST", "Providers to disable");
    AddFlag("--log-output", "Lead what scripts print, and their tracebacks, to the plug-in's log",
            [this] { options_.emplace_back(kLogOutputOption, "true"); });
    AddFlag("--release-lock", "Let threads of scripts run between collections",
            [this] { options_.emplace_back(kReleaseLockOption, "true"); });
    Add("--option", "KEY=VALUE", "Any option of the plug-in, over all others; may be repeated",
        [this](auto& text) { overrides_.push_back(SplitPair("--option", text)); });
  }

  void AddLibraryOptions() {
    static const std::map<std::string, int> kLevels = {{"error", TEV_LOG_ERROR},
                                                       {"warning", TEV_LOG_WARNING},
                                                       {"info", TEV_LOG_INFO},
                                                       {"debug", TEV_LOG_DEBUG},
                                                       {"0", 0},
                                                       {"1", 1},
                                                       {"2", 2},
                                                       {"3", 3},
                                                       {"4", 4},
                                                       {"5", 5},
                                                       {"6", 6},
                                                       {"7", 7}};
    Add("--library", "PATH", "Plug-in; default: librubruf.so beside this program, else the system's",
        [this](auto& path) { command_.library = path; });
    Add("--log-level", "LEVEL", "The plug-in's messages to show: error, warning, info, debug, or 0 to 7",
        [this](auto& name) { command_.log_level = Named("--log-level", kLevels, name); });
    Add("--log-file", "PATH", "Write the plug-in's messages to this file",
        [this](auto& path) { command_.log_file = path; });
    AddFlag("--log-syslog", "Send the plug-in's messages to the system log", [this] { command_.log_syslog = true; });
  }

  void AddWatch() {
    AddFlag("--watch", "Do it again whenever a script or .cfg file changes, until interrupted",
            [this] { command_.watch = true; });
  }

  void AddRunOptions() {
    AddWatch();
    AddNumber("--count", command_.count, "N", "Rounds of one collection per source; 0: until interrupted");
    AddNumber("--interval", command_.interval, "SECONDS", "Time between rounds");
    AddNumber("--buffer-bytes", command_.buffer_bytes, "N",
              "Size of the buffer: a token takes 16 bytes and its payload");
    AddFormat({{"json", Format::kJson}, {"pretty", Format::kPretty}, {"tokens", Format::kTokens}},
              "json (default): a line per collection; pretty: indented, cut to the window; tokens: one a line");
    AddFlag("--tokens", "Short for --format tokens", [this] { command_.format = Format::kTokens; });
    AddFlag("--stats", "Tell the cost of each collection on standard error, and sum it up at the end",
            [this] { command_.stats = true; });
  }

  CLI::App app_{"Runs Python scripts through the plug-in as a telemetry host would, and shows what arrives.",
                "rubruf-host"};
  CLI::App* added_ = nullptr;  // the command whose options are being added
  CommandLine command_;
  std::vector<std::string> targets_;
  std::string only_;
  std::vector<Script> scripts_;
  Script pending_;  // options before the first --script: for the single script of WHAT
  std::string pending_option_;
  OptionList options_;
  OptionList overrides_;
};

}  // namespace

bool Wants(const CommandLine& command, const std::string& source) {
  return command.only.empty() || source == command.only || source == "dict_" + command.only;
}

std::string NoSource(const std::string& only, const std::vector<std::string>& sources) {
  std::string names;
  for (const std::string& source : sources) names += (names.empty() ? "" : ", ") + source;
  return "--only: there is no " + only + ", but " + (names.empty() ? "no script" : names);
}

std::optional<CommandLine> ParseCommandLine(int argc, char** argv, int* status) {
  Parser parser;
  try {
    return parser.Parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    *status = parser.Exit(error);
    return std::nullopt;
  }
}

}  // namespace standin
