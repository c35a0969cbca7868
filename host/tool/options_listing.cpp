// The command `options`: prints one entry for each key.

#include "host/tool/options_listing.h"

#include <nlohmann/json.hpp>

namespace standin {

std::string ListOptions(const OptionList& options, Format format) {
  nlohmann::ordered_json entries = nlohmann::ordered_json::object();
  for (const auto& [key, value] : options) entries[key] = value;
  if (format == Format::kJson) return entries.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + '\n';
  std::string lines;
  for (const auto& [key, value] : entries.items()) lines += key + '=' + value.get<std::string>() + '\n';
  return lines;
}

}  // namespace standin
