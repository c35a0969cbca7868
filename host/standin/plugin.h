// Plugin: a plug-in library, which stays loaded as long as the object exists.

#ifndef RUBRUF_HOST_STANDIN_PLUGIN_H_
#define RUBRUF_HOST_STANDIN_PLUGIN_H_

#include <memory>
#include <string>

#include "host/tev_host.h"
#include "utils/dict/dict.h"

namespace standin {

class Plugin {
 public:
  // Loads the library with local symbol scope, as hosts do. Throws std::runtime_error with the loader's message.
  explicit Plugin(const std::string& path);

  // Calls the plug-in's entry. The library owns the descriptor. Null if it refused the options.
  tev_event_provider_t* Construct(tev_custom_options* options) const { return construct_(options); }

  // An exported function or variable, as a pointer of type F: Symbol<decltype(&::tev_dict_add)>("tev_dict_add").
  // Throws std::runtime_error if the library does not export it.
  template <class F>
  F Symbol(const char* name) const {
    return reinterpret_cast<F>(Find(name));
  }

 private:
  struct Unload {
    void operator()(void* library) const;
  };

  void* Find(const char* name) const;

  std::unique_ptr<void, Unload> library_;
  tev_event_provider_t* (*construct_)(tev_custom_options*);
};

}  // namespace standin

#endif  // RUBRUF_HOST_STANDIN_PLUGIN_H_
