// PythonModule: a Python module of the host's own, which runs in the plug-in's interpreter.

#ifndef RUBRUF_HOST_STANDIN_PYTHON_MODULE_H_
#define RUBRUF_HOST_STANDIN_PYTHON_MODULE_H_

#include <memory>
#include <string>
#include <vector>

#include "host/standin/plugin.h"

namespace standin {

// The host links no Python. It finds the functions of the plug-in's Python by name, so it serves plug-ins of every
// version. The interpreter runs as long as the object exists; the plug-in must outlive the object.
class PythonModule {
 public:
  struct Source {
    const char* name;
    const char* text;
  };

  // Starts the interpreter if it does not run, and makes the modules of their sources. Each may import those before
  // it. The last one must define call(function, text). Throws std::runtime_error.
  PythonModule(const Plugin& plugin, const std::vector<Source>& sources);

  // Calls the module's call(function, text) and returns its result, a text. All texts are UTF-8 without zero
  // characters. Throws std::runtime_error, after Python has printed the reason.
  std::string Call(const char* function, const std::string& text) const;

 private:
  struct Release {
    const Plugin* plugin;
    void operator()(void* object) const;
  };
  struct Stop {
    void operator()(const Plugin* plugin) const;
  };
  // Holds the interpreter's lock, which the plug-in may give back between its callbacks.
  class Lock {
   public:
    explicit Lock(const Plugin* plugin);
    ~Lock();
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

   private:
    const Plugin* plugin_;
    int state_;
  };
  using Object = std::unique_ptr<void, Release>;

  Object Execute(const Source& source) const;
  // Takes over `object`, a new reference. Throws as Call if it is null.
  Object Own(void* object, const char* what) const;

  std::unique_ptr<const Plugin, Stop> interpreter_;
  Object call_;
};

}  // namespace standin

#endif  // RUBRUF_HOST_STANDIN_PYTHON_MODULE_H_
