// Looks through the loaded shared libraries for extension modules: sys.modules need not list all of them.

#include "utils/python_env/extension_modules.h"

#include <dlfcn.h>
#include <link.h>

#include <climits>
#include <cstdio>
#include <cstring>

#include "utils/python_env/owned_ref.h"
#include "utils/python_env/python.h"

namespace {

// Modules of the standard library with which a later life crashes. Found by importing every module of the standard
// library in five lives on 3.8.18, 3.9.18, 3.10.13, 3.11.2, 3.11.7, 3.12.1 and 3.13.0. The other releases of these two
// minor versions are taken to be the same.
constexpr const char* kOnceOnly[] = {
#if PY_MAJOR_VERSION == 3 && PY_MINOR_VERSION == 11
    "_zoneinfo",
#elif PY_MAJOR_VERSION == 3 && PY_MINOR_VERSION == 12
    "_asyncio", "_ctypes", "_datetime", "_decimal", "_hashlib", "_ssl", "_zoneinfo",
#endif
    nullptr};

bool IsOnceOnly(const char* name) {
  for (const char* const* known = kOnceOnly; *known != nullptr; ++known) {
    if (strcmp(name, *known) == 0) return true;
  }
  return false;
}

// Whether the file has the function that every extension module exports, named after the module.
bool HasInitFunction(const char* file, const char* module) {
  char function[NAME_MAX + sizeof "PyInit_"];
  snprintf(function, sizeof function, "PyInit_%s", module);
  void* const library = dlopen(file, RTLD_LAZY | RTLD_NOLOAD);
  if (library == nullptr) return false;
  const bool found = dlsym(library, function) != nullptr;
  dlclose(library);
  return found;
}

// Whether the file can be an extension module at all, by its name: a library with a version behind ".so" is none.
bool CanBeModule(const char* file) {
  const size_t length = strlen(file);
  Dl_info own;
  return length > 3 && strcmp(file + length - 3, ".so") == 0 &&
         (dladdr(reinterpret_cast<void*>(&FindOnceOnlyModule), &own) == 0 || strcmp(file, own.dli_fname) != 0);
}

bool IsOnceOnlyFile(const char* file) {
  const char* const slash = strrchr(file, '/');
  if (slash == nullptr || !CanBeModule(file)) return false;
  char module[NAME_MAX + 1];
  snprintf(module, sizeof module, "%.*s", static_cast<int>(strcspn(slash + 1, ".")), slash + 1);
  // CPython installs the standard library's extension modules in a directory of this name.
  constexpr char kStandard[] = "/lib-dynload";
  const bool standard = slash - file >= static_cast<ptrdiff_t>(strlen(kStandard)) &&
                        strncmp(slash - strlen(kStandard), kStandard, strlen(kStandard)) == 0;
  return standard ? IsOnceOnly(module) : HasInitFunction(file, module);
}

struct Search {
  int remaining;
  char* file;
};

// Copies the name of one loaded library. The callback runs under a lock of the loader, so it does nothing else.
int CopyName(dl_phdr_info* library, size_t /*size*/, void* user) {
  auto* const search = static_cast<Search*>(user);
  if (search->remaining-- > 0) return 0;
  snprintf(search->file, PATH_MAX, "%s", library->dlpi_name);
  return 1;
}

// Some distributions build modules of the list into libpython.
bool FindBuiltIn(char* file) {
  for (const char* const* known = kOnceOnly; *known != nullptr; ++known) {
    const OwnedRef name(PyUnicode_FromString(*known));
    const OwnedRef module(name ? PyImport_GetModule(name.get()) : nullptr);
    PyErr_Clear();
    if (!module) continue;
    snprintf(file, PATH_MAX, "%s", *known);
    return true;
  }
  return false;
}

}  // namespace

bool FindOnceOnlyModule(char* file) {
  for (int number = 0;; ++number) {
    Search search{number, file};
    if (dl_iterate_phdr(CopyName, &search) == 0) return FindBuiltIn(file);
    if (IsOnceOnlyFile(file)) return true;
  }
}
