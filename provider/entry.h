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

// Reads the host's options (borrowed for the call) and returns the one descriptor, which the library owns. Null after
// an error message if the options are not usable. A further call adds its scripts to the same provider.
TEV_EXPORT tev_event_provider_t* construct_event_provider(tev_custom_options* options);

#ifdef __cplusplus
}  // extern "C"

// The descriptor's `initialize`. True if the provider is ready to collect. False after an error message: the provider
// is then finalised, with two exceptions, in which nothing has changed: the interpreter does not start, or the provider
// is initialised already. It has C++ linkage, and hosts look it up by that name; C reaches it through the descriptor.
TEV_EXPORT bool python_event_provider_initialize(tev_event_provider_t* provider, tev_type_system_t* type_system);
#endif

#endif  // RUBRUF_PROVIDER_ENTRY_H_
