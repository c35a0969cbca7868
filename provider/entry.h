// What the plug-in exports to the host, besides the utility library.

#ifndef RUBRUF_PROVIDER_ENTRY_H_
#define RUBRUF_PROVIDER_ENTRY_H_

#include "host/tev_host.h"
#include "utils/dict/dict.h"
#include "utils/export.h"

// Reads the host's options (borrowed for the call) and returns the one descriptor, owned by the library; null after an
// error message when the options are not usable. A further call reads its options into the same provider, adding its
// scripts.
extern "C" TEV_EXPORT tev_event_provider_t* construct_event_provider(tev_custom_options* options);

// The descriptor's `initialize`. True when the provider is ready to collect. After false, which follows an error
// message, all is finalised; only where the interpreter does not start or the provider is initialised already, nothing
// has changed. C++ linkage is part of the interface.
TEV_EXPORT bool python_event_provider_initialize(tev_event_provider_t* provider, tev_type_system_t* type_system);

#endif  // RUBRUF_PROVIDER_ENTRY_H_
