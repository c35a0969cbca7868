// Calls the Python functions of the checker. Arguments and results are JSON.

#include "host/tool/checker.h"

#include <nlohmann/json.hpp>

#include "host/tool/checker_sources.h"
#include "host/tool/supervisor.h"

namespace standin {
namespace {

using nlohmann::json;

// Makes each byte a character, because a path need not be UTF-8.
std::string BytesAsText(const std::string& bytes) {
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x80) {
      text += c;
    } else {
      text += static_cast<char>(0xC0 | byte >> 6);
      text += static_cast<char>(0x80 | (byte & 0x3F));
    }
  }
  return text;
}

Findings OfKind(const json& found, const char* kind) { return {found[kind][0], found[kind][1], found[kind][2]}; }

Checked FromJson(const json& found) {
  return {OfKind(found, "errors"), OfKind(found, "warnings"), found["seconds"].get<double>()};
}

}  // namespace

Checker::Checker(const Plugin& plugin) : module_(plugin, kCheckerSources) {}

void Checker::Bind(const ConfiguredScript& script, bool lost) {
  const Step step(script.path + ", which is imported");
  const json request = {{"path", BytesAsText(script.path)},
                        {"function", BytesAsText(script.function)},
                        {"tolerant", script.tolerant},
                        {"own_module", script.own_module},
                        {"lost", lost}};
  module_.Call("bind", request.dump());
}

std::vector<Checked> Checker::Release() {
  std::vector<Checked> of_scripts;
  for (const json& found : json::parse(module_.Call("release", ""))) of_scripts.push_back(FromJson(found));
  return of_scripts;
}

std::optional<Checked> Checker::Take() {
  const json found = json::parse(module_.Call("take", ""));
  if (found.is_null()) return std::nullopt;
  return FromJson(found);
}

Checked Checker::Threads(size_t script) {
  return FromJson(json::parse(module_.Call("threads", std::to_string(script))));
}

Checker::Memory Checker::MemoryInUse() {
  const json amounts = json::parse(module_.Call("memory", ""));
  return {amounts[0], amounts[1]};
}

}  // namespace standin
