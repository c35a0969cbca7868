// The plug-in's entry: what it exports to the host besides the utility library.
//
// For C and C++. The headers that are installed include each other by relative paths, so that they find each other
// below include/rubruf as well as here, and never a header of the host's own.

#ifndef RUBRUF_PROVIDER_ENTRY_H_
#define RUBRUF_PROVIDER_ENTRY_H_

#include "../host/tev_host.h"
#include "../utils/dict/dict.h"
#include "../utils/export.h"

#ifdef __cplusplus
extern "C" {
#endif

// Reads the host's options (borrowed for the call) and returns the one descriptor, owned by the library; null after an
// error message when the options are not usable. A further call reads its options into the same provider, adding its
// scripts.
TEV_EXPORT tev_event_provider_t* construct_event_provider(tev_custom_options* options);

#ifdef __cplusplus
}  // extern "C"

// The descriptor's `initialize`. True when the provider is ready to collect. After false, which follows an error
// message, all is finalised; only where the interpreter does not start or the provider is initialised already, nothing
// has changed. It has C++ linkage, and hosts look it up by that name; C reaches it through the descriptor.
TEV_EXPORT bool python_event_provider_initialize(tev_event_provider_t* provider, tev_type_system_t* type_system);
#endif

#endif  // RUBRUF_PROVIDER_ENTRY_H_
