// Options of the command, and their translation into the plug-in's option keys.

#include "host/standin/command_line.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <filesystem>
#include <functional>

namespace standin {
namespace {

constexpr int kUsageError = 2;
constexpr double kMaxInterval = 1e9;

// What one --script and the options after it say: keys without their "python-import-" and number.
struct Script {
  OptionList settings;
  OptionList arguments;
};

// The library beside the executable; without one there, the loader's search decides.
std::string DefaultLibrary() {
  const auto beside = std::filesystem::read_symlink("/proc/self/exe").replace_filename("librubruf.so");
  return std::filesystem::exists(beside) ? beside.string() : "librubruf.so";
}

// One script has the plain keys; several have numbered ones.
OptionList ScriptOptions(const std::vector<Script>& scripts) {
  OptionList options;
  if (scripts.empty()) return options;
  options.emplace_back("enable-provider", "python");
  if (scripts.size() > 1) options.emplace_back("python-import-num-scripts", std::to_string(scripts.size()));
  for (size_t i = 0; i < scripts.size(); ++i) {
    const std::string number = scripts.size() > 1 ? std::to_string(i + 1) + "-" : "";
    const std::string setting = "python-import-" + number;
    const std::string argument = "python-import-arg-" + number;
    for (const auto& [key, value] : scripts[i].settings) options.emplace_back(setting + key, value);
    for (const auto& [key, value] : scripts[i].arguments) options.emplace_back(argument + key, value);
  }
  return options;
}

constexpr char kFooter[] = R"(Example:
  rubruf-host --script load.py --tag load --arg path=/proc/loadavg --count 3 --interval 0.5

Standard output carries one line of JSON per collection (or the tokens); what scripts print goes to standard error,
where the plug-in's messages are. TEV_API_LOG_LEVEL sets which are shown: 3 errors, 4 warnings (the default here),
6 information, 7 everything. An interrupt ends the rounds; a second one ends the process at once.
With several scripts, script N's argument NAME also reaches every script as N-NAME.

Exit status: 0 everything succeeded; 1 something failed, as told on standard error; 2 wrong usage.)";

// Options act in the order in which they stand, since some belong to the --script before them.
class Parser {
 public:
  Parser() {
    app_.footer(kFooter);
    AddScriptOptions();
    AddPluginOptions();
    AddRunOptions();
  }

  // Throws CLI::ParseError, also for --help.
  CommandLine Parse(int argc, char** argv) {
    app_.parse(argc, argv);
    Require(command_.count >= 0, "--count", "must not be negative");
    Require(command_.interval >= 0 && command_.interval <= kMaxInterval, "--interval", "must be a number of seconds");
    Require(command_.buffer_bytes > 0, "--buffer-bytes", "must be positive");
    Require(!scripts_.empty() || !options_.empty() || !overrides_.empty(), "nothing to collect",
            "give --script, --config-dir or an option");
    if (command_.library.empty()) command_.library = DefaultLibrary();
    command_.options = ScriptOptions(scripts_);
    command_.options.insert(command_.options.end(), options_.begin(), options_.end());
    command_.options.insert(command_.options.end(), overrides_.begin(), overrides_.end());
    return command_;
  }

  int Exit(const CLI::ParseError& error) const { return app_.exit(error) == 0 ? EXIT_SUCCESS : kUsageError; }

 private:
  using Handler = std::function<void(const std::string& value)>;

  static void Require(bool condition, const std::string& option, const std::string& message) {
    if (!condition) throw CLI::ValidationError(option, message);
  }

  static OptionList::value_type SplitPair(const std::string& option, const std::string& text) {
    const size_t equals = text.find('=');
    Require(equals != 0 && equals != std::string::npos, option, "expected a name, = and a value, got " + text);
    return {text.substr(0, equals), text.substr(equals + 1)};
  }

  void Add(const std::string& option, const char* type, const char* help, const Handler& handler) {
    app_.add_option_function<std::string>(option, handler, help)->trigger_on_parse()->type_name(type);
  }

  void AddSetting(const std::string& key, const char* type, const char* help) {
    Add("--" + key, type, help, [=](auto& value) { LastScript("--" + key).settings.emplace_back(key, value); });
  }

  Script& LastScript(const std::string& option) {
    Require(!scripts_.empty(), option, "belongs to the --script before it, and there is none");
    return scripts_.back();
  }

  void AddScriptOptions() {
    Add("--script", "FILE", "Serve this script; may be repeated", [this](auto& file) {
      scripts_.push_back({{{"file", file}}, {}});
    });
    AddSetting("function", "NAME", "Collection function of the last script; default: collect");
    AddSetting("tag", "TAG", "Tag of the last script: its source is called dict_TAG");
    Add("--arg", "NAME=VALUE", "Argument of the last script; may be repeated",
        [this](auto& text) { LastScript("--arg").arguments.push_back(SplitPair("--arg", text)); });
    app_.add_flag_callback(
            "--force-sync", [this] { LastScript("--force-sync").settings.emplace_back("force-sync", "true"); },
            "Let the last script ask for a forced synchronisation")
        ->trigger_on_parse();
  }

  void AddPluginOptions() {
    const auto add = [this](const char* option, const char* key, const char* type, const char* help) {
      Add(option, type, help, [=](auto& value) { options_.emplace_back(key, value); });
    };
    add("--config-dir", "python-import-config-dir", "DIR", "Serve the scripts of the .cfg files in this directory");
    add("--enable-provider", "enable-provider", "LIST", "Providers to enable; default with --script: python");
    add("--disable-provider", "disable-provider", "LIST", "Providers to disable");
    Add("--option", "KEY=VALUE", "Any option of the plug-in, over all others; may be repeated",
        [this](auto& text) { overrides_.push_back(SplitPair("--option", text)); });
  }

  void AddRunOptions() {
    const auto add = [this](const char* option, auto& field, const char* type, const char* help) {
      app_.add_option(option, field, help)->type_name(type)->capture_default_str();
    };
    add("--library", command_.library, "PATH", "Plug-in; default: librubruf.so beside this program, else the system's");
    add("--count", command_.count, "N", "Rounds of one collection per source; 0: until interrupted");
    add("--interval", command_.interval, "SECONDS", "Time between rounds");
    add("--buffer-bytes", command_.buffer_bytes, "N", "Size of the buffer: a token takes 16 bytes and its payload");
    app_.add_flag("--tokens", command_.tokens, "Print the tokens, one a line, instead of JSON");
  }

  CLI::App app_{"Runs Python scripts through the plug-in as a telemetry host would, and shows what arrives."};
  CommandLine command_;
  std::vector<Script> scripts_;
  OptionList options_;
  OptionList overrides_;
};

}  // namespace

CommandLine ParseCommandLine(int argc, char** argv) {
  Parser parser;
  try {
    return parser.Parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    std::exit(parser.Exit(error));
  }
}

}  // namespace standin
