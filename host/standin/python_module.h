// A Python module of the host's own in the plug-in's interpreter.

#ifndef RUBRUF_HOST_STANDIN_PYTHON_MODULE_H_
#define RUBRUF_HOST_STANDIN_PYTHON_MODULE_H_

#include <memory>
#include <string>

#include "host/standin/plugin.h"

namespace standin {

// The interpreter is the plug-in's, and so are its functions, found by name: the host links no Python, and serves
// plug-ins of every version. It runs for as long as the object lives; the plug-in must outlive it.
class PythonModule {
 public:
  // Starts the interpreter, unless it runs, and the module `name` from its source, which defines call(function, text).
  // Throws std::runtime_error.
  PythonModule(const Plugin& plugin, const char* name, const char* source);

  // Has call() called, which returns a text. All are UTF-8, without zero characters. Throws std::runtime_error, after
  // Python has printed why.
  std::string Call(const char* function, const std::string& text) const;

 private:
  struct Release {
    const Plugin* plugin;
    void operator()(void* object) const;
  };
  struct Stop {
    void operator()(const Plugin* plugin) const;
  };
  using Object = std::unique_ptr<void, Release>;

  // Takes a new reference over. Throws as Call.
  Object Own(void* object, const char* what) const;

  std::unique_ptr<const Plugin, Stop> interpreter_;
  Object call_;
};

}  // namespace standin

#endif  // RUBRUF_HOST_STANDIN_PYTHON_MODULE_H_
