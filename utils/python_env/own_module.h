// Own modules: scripts that are loaded from their paths, whatever other modules are called.

#ifndef RUBRUF_UTILS_PYTHON_ENV_OWN_MODULE_H_
#define RUBRUF_UTILS_PYTHON_ENV_OWN_MODULE_H_

#include "utils/python_env/python.h"

// Loads a ".py" file as a new module, after appending its directory to sys.path. The module stands in sys.modules as
// "rubruf_script_NUMBER_NAME", or under a higher number if that name is taken; `*name` (a new reference, or null)
// receives the name. A new reference to the module, or null after an error message; a Python error is then printed and
// cleared.
PyObject* LoadOwnModule(const char* python_file, unsigned number, PyObject** name);

// Takes the module `name` (borrowed) out of sys.modules, if it is there. Leaves no Python error.
void DropOwnModule(PyObject* name);

#endif  // RUBRUF_UTILS_PYTHON_ENV_OWN_MODULE_H_
