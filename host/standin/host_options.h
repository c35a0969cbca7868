// HostOptions: the options dictionary that a host hands to the plug-in's entry.

#ifndef RUBRUF_HOST_STANDIN_HOST_OPTIONS_H_
#define RUBRUF_HOST_STANDIN_HOST_OPTIONS_H_

#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "host/standin/plugin.h"
#include "utils/dict/dict.h"

namespace standin {

// Pairs of key and value. If a key occurs twice, the later value counts.
using OptionList = std::vector<std::pair<std::string, std::string>>;

// It is built with the plug-in's own dictionary functions, so the plug-in must outlive it.
class HostOptions {
 public:
  explicit HostOptions(const Plugin& plugin, const OptionList& options = {})
      : add_(plugin.Symbol<decltype(add_)>("tev_dict_add")),
        dict_(plugin.Symbol<decltype(&::tev_dict_create)>("tev_dict_create")(),
              plugin.Symbol<decltype(&::tev_dict_delete)>("tev_dict_delete")) {
    for (const auto& [key, value] : options) Add(key.c_str(), value.c_str());
  }

  // Adds a pair. `value` may be null, and stays null. Throws std::bad_alloc.
  void Add(const char* key, const char* value) {
    if (!add_(dict_.get(), key, value)) throw std::bad_alloc();
  }

  tev_custom_options* get() const { return dict_.get(); }

 private:
  decltype(&::tev_dict_add) add_;
  std::unique_ptr<tev_dict_t, decltype(&::tev_dict_delete)> dict_;
};

}  // namespace standin

#endif  // RUBRUF_HOST_STANDIN_HOST_OPTIONS_H_
