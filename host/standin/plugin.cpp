// Plugin: loads a library through the dynamic loader.

#include "host/standin/plugin.h"

#include <dlfcn.h>

#include <stdexcept>

namespace standin {

Plugin::Plugin(const std::string& path) : library_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
  if (!library_) throw std::runtime_error(std::string("cannot load the plug-in: ") + dlerror());
  construct_ = Symbol<decltype(construct_)>("construct_event_provider");
}

void Plugin::Unload::operator()(void* library) const { dlclose(library); }

void* Plugin::Find(const char* name) const {
  if (void* symbol = dlsym(library_.get(), name)) return symbol;
  throw std::runtime_error(std::string("not a plug-in: ") + dlerror());
}

}  // namespace standin
