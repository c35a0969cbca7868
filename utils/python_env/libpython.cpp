// The process's libpython: its version, and its place in the global symbol scope.

#include <dlfcn.h>

#include <cstring>

#include "utils/log/log.h"
#include "utils/python_env/interpreter.h"

namespace {

constexpr char kVersion[] = Py_STRINGIFY(PY_MAJOR_VERSION) "." Py_STRINGIFY(PY_MINOR_VERSION) ".";

void LogOtherPython(const char* version) {
  TEV_UTIL_LOG(TEV_LOG_ERROR, "[python environment] the process has Python %.6s, and this library is made for %s*",
               version, kVersion);
}

// Extension modules do not link libpython, and a host that loads us with RTLD_LOCAL hides our dependencies
// from them. If this fails, importing an extension module fails with "undefined symbol"; everything else works.
void PromoteLibpython() {
  Dl_info info;
  if (dladdr(reinterpret_cast<void*>(&Py_InitializeEx), &info) == 0) return;
  void* library = dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD);
  if (library == nullptr) return;
  // Only the first namespace has a global scope. In others, glibc before 2.34 crashes on RTLD_GLOBAL.
  Lmid_t space = LM_ID_BASE;
  if (dlinfo(library, RTLD_DI_LMID, &space) == 0 && space == LM_ID_BASE) {
    // It also stays loaded when we are unloaded: extension modules and threads of scripts may outlive us and need it.
    void* promoted = dlopen(info.dli_fname, RTLD_NOW | RTLD_GLOBAL | RTLD_NOLOAD | RTLD_NODELETE);
    // The flags stay with the library after the handle is closed.
    if (promoted != nullptr) dlclose(promoted);
  }
  dlclose(library);
}

}  // namespace

// Macros and inline functions of CPython are compiled in for one version. A host that links another version may have
// loaded that one first.
bool IsPythonOfThisBuild() {
  if (strncmp(Py_GetVersion(), kVersion, strlen(kVersion)) == 0) return true;
  LogOtherPython(Py_GetVersion());
  return false;
}

bool OfferLibpython() {
  PromoteLibpython();
  // Extension modules bind to the first libpython of the global scope. Beside another one they would crash.
  void* const none = dlsym(RTLD_DEFAULT, "_Py_NoneStruct");
  if (none == nullptr || none == Py_None) return true;
  const auto version = reinterpret_cast<decltype(&Py_GetVersion)>(dlsym(RTLD_DEFAULT, "Py_GetVersion"));
  LogOtherPython(version != nullptr ? version() : "");
  return false;
}
