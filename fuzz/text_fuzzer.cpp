// Fuzz target for texts: the input is parsed as a .cfg file, as a host's options, and as a value to convert.
//
// The sanitizers look for faults. What a text means is checked by tables in the tests, not here. After each input the
// provider must be as before.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <sstream>

#include "config/cfg_file.h"
#include "fuzz/expect.h"
#include "host/standin/handles.h"
#include "provider/entry.h"
#include "utils/log/log.h"
#include "utils/strings/conversions.h"
#include "utils/strings/templates.h"

namespace {

using fuzz::Expect, fuzz::ExpectEqual;

void ParseAsFile(const std::string& text) {
  static const int file = memfd_create("cfg", 0);
  static const std::string path = "/proc/self/fd/" + std::to_string(file);
  Expect(ftruncate(file, 0) == 0 && pwrite(file, text.data(), text.size(), 0) >= 0, "the file");
  std::vector<PythonEventProvider::ScriptConfig*> list;
  Expect(config_dir_parser::parseCfgFile(path, list, true) && list.size() == 1, "a file is never refused");
  list[0]->LogInstance();
  DestroyScriptConfigs(list);
}

// Each line of `text` is an option. The options before them make a valid configuration, which `text` may change.
tev_event_provider_t* Construct(const std::string& text) {
  const std::unique_ptr<tev_dict_t, void (*)(tev_dict_t*)> options(tev_dict_create(), tev_dict_delete);
  std::istringstream lines("enable-provider=python\npython-import-file=/a.py\npython-import-num-scripts=1\n" + text);
  for (std::string line; std::getline(lines, line);) {
    const size_t equals = line.find('=');
    const char* const value = equals == std::string::npos ? nullptr : line.c_str() + equals + 1;
    tev_dict_add(options.get(), line.substr(0, equals).c_str(), value);
  }
  return construct_event_provider(options.get());
}

void ConvertAll(const std::string& text) {
  // On the heap, where the sanitizer finds a write beyond the end.
  const std::unique_ptr<uint8_t[]> guid(new uint8_t[16]);
  const std::unique_ptr<char, void (*)(void*)> trimmed(strdup(text.c_str()), free);
  string_to_guid(text.c_str(), guid.get());
  const size_t begin = static_cast<size_t>(trim_white_space(trimmed.get()) - trimmed.get());
  Expect(begin <= strlen(text.c_str()), "a trimmed text begins in the text");
  for (char* made : {string_concat_comma_seperated_token(text.c_str(), trimmed.get()),
                     tev_expand_string_template("%s,%s", text.c_str(), trimmed.get())}) {
    Expect(made != nullptr && strlen(made) <= 2 * text.size() + 1, "a text is made");
    free(made);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The log function discards all messages. The debug level makes sure that each one is formatted.
  set_log_func([](int, const char*) {}, TEV_LOG_DEBUG);
  static tev_event_provider_t* const provider = Construct("");
  const std::string text(data, data + size);
  ParseAsFile(text);
  ConvertAll(text);
  provider->finalize(provider);
  if (Construct(text) != nullptr) {
    const standin::SourceArray sources(provider->get_sources(provider));
    Expect(sources != nullptr && !sources->sources.empty(), "scripts have sources");
  }
  provider->finalize(provider);
  ExpectEqual(tev_source_t::live + tev_source_array_t::live, 0, "the handles left");
  return 0;
}
