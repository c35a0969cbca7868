// What every import of a script begins with: its module name, and its directory in sys.path.

#ifndef RUBRUF_UTILS_PYTHON_ENV_IMPORT_PATH_H_
#define RUBRUF_UTILS_PYTHON_ENV_IMPORT_PATH_H_

#include <cstdlib>
#include <memory>

struct FreeText {
  void operator()(char* text) const { free(text); }
};
// A text that malloc has allocated.
using MallocText = std::unique_ptr<char, FreeText>;

// Appends the directory of a ".py" file to sys.path, and returns the file's name without ".py". Null after an error
// message; a Python error is then printed and cleared.
MallocText EnterDirectory(const char* python_file);

// Tells that the module `name` cannot be imported, and prints and clears the Python error.
void ReportFailedImport(const char* name);

#endif  // RUBRUF_UTILS_PYTHON_ENV_IMPORT_PATH_H_
