// The extension modules that can be loaded once per process only, and so keep the interpreter.

#ifndef RUBRUF_UTILS_PYTHON_ENV_EXTENSION_MODULES_H_
#define RUBRUF_UTILS_PYTHON_ENV_EXTENSION_MODULES_H_

// Writes the file of the first such module that the process has loaded into `file` (of PATH_MAX bytes). False without
// one. Modules of the standard library count only where a Python is known to crash in its next life with them; all
// others count, because few are made for a second interpreter. Modules that scripts have removed from sys.modules count
// too. The interpreter must run, on this thread.
bool FindOnceOnlyModule(char* file);

#endif  // RUBRUF_UTILS_PYTHON_ENV_EXTENSION_MODULES_H_
