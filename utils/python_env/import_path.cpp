// The checks and the sys.path entry with which every import of a script begins.

#include "utils/python_env/import_path.h"

#include <libgen.h>

#include <cstdio>
#include <cstring>

#include "utils/log/log.h"
#include "utils/python_env/owned_ref.h"
#include "utils/python_env/python_env.h"

namespace {

// The statement that appends `directory` to sys.path, quoted by the interpreter itself so that no character of it can
// end the literal. Null when memory runs out.
MallocText AppendPathStatement(const char* directory) {
  OwnedRef path(PyUnicode_DecodeFSDefault(directory));
  if (!path) return nullptr;
  OwnedRef literal(PyObject_Repr(path.get()));
  if (!literal) return nullptr;
  const char* literal_text = PyUnicode_AsUTF8(literal.get());
  char* statement = nullptr;
  if (literal_text == nullptr || asprintf(&statement, "import sys; sys.path.append(%s)", literal_text) < 0) {
    return nullptr;
  }
  return MallocText(statement);
}

// Whether a file name, a path's last component, is that of a Python file: something before ".py".
bool IsPythonFile(const char* file_name) {
  const size_t length = strlen(file_name);
  return length > 3 && strcmp(file_name + length - 3, ".py") == 0;
}

void LogAllocationError() { TEV_UTIL_LOG(TEV_LOG_ERROR, "[python environment] Memory allocation error"); }

}  // namespace

MallocText EnterDirectory(const char* python_file) {
  // Copies, since dirname and basename may write into what they are given (POSIX).
  const MallocText directory_copy(strdup(python_file));
  const MallocText name_copy(strdup(python_file));
  if (!directory_copy || !name_copy) {
    LogAllocationError();
    return nullptr;
  }
  const char* file_name = basename(name_copy.get());
  if (!IsPythonFile(file_name)) {
    TEV_UTIL_LOG(TEV_LOG_ERROR, "[python environment] Invalid input - file name should contain '.py' postfix");
    return nullptr;
  }
  const MallocText statement = AppendPathStatement(dirname(directory_copy.get()));
  if (!statement) {
    LogAllocationError();
    PyErr_Clear();
    return nullptr;
  }
  if (PyRun_SimpleStringFlags(statement.get(), nullptr) != 0) {
    TEV_UTIL_LOG(TEV_LOG_ERROR, "[python environment] Could not add file location to PYTHONPATH");
    tev_python_environment_print_error();
    return nullptr;
  }
  MallocText module_name(strndup(file_name, strlen(file_name) - 3));
  if (!module_name) LogAllocationError();
  return module_name;
}

void ReportFailedImport(const char* name) {
  TEV_UTIL_LOG(TEV_LOG_ERROR, "[python environment] Could not import %s", name);
  tev_python_environment_print_error();
}
