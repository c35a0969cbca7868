// KeepLibraryLoaded: makes this library stay in the process when the host unloads it.
//
// Scripts may keep objects that call functions of this library, beyond the life of the provider.

#ifndef RUBRUF_PROVIDER_KEEP_LOADED_H_
#define RUBRUF_PROVIDER_KEEP_LOADED_H_

#include <dlfcn.h>

inline void KeepLibraryLoaded() {
  Dl_info info;
  if (dladdr(reinterpret_cast<void*>(&KeepLibraryLoaded), &info) == 0) return;
  if (void* library = dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE)) dlclose(library);
}

#endif  // RUBRUF_PROVIDER_KEEP_LOADED_H_
