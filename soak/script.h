// The script of the soak, in the plug-in's interpreter and in the options of a host.

#ifndef RUBRUF_SOAK_SCRIPT_H_
#define RUBRUF_SOAK_SCRIPT_H_

#include <cstdint>

#include "host/standin/host_options.h"
#include "host/standin/plugin.h"
#include "host/standin/python_module.h"

namespace soak {

// Loads the script and, with it, holds the interpreter: lives of the provider then come and go in one interpreter. Its
// functions stand in results.py. Throws std::runtime_error.
standin::PythonModule LoadScript(const standin::Plugin& plugin);

// Options for a provider that has this script `count` times, twice at least. Every second one asks for a forced
// synchronisation, and has its tag from an option.
standin::OptionList ScriptOptions(uint32_t count);
inline bool HasForceSync(uint32_t index) { return index % 2 == 1; }
inline std::string TagOf(uint32_t index) { return index % 2 == 1 ? "dict_" + std::to_string(index) : "dict_soak"; }

}  // namespace soak

#endif  // RUBRUF_SOAK_SCRIPT_H_
