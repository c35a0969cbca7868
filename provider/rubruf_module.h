// The module `rubruf`, through which scripts reach the host's logger and the figures of all scripts.
//
// It is made when a script imports it. A finder behind all others makes it, so a script or an installed module of that
// name comes first, and nothing changes for scripts that do not import it. Scripts of an interpreter that is kept may
// hold the module beyond a life of the provider: between lives it does nothing, and in the next life it works again.

#ifndef RUBRUF_PROVIDER_RUBRUF_MODULE_H_
#define RUBRUF_PROVIDER_RUBRUF_MODULE_H_

class PythonEventProvider;

namespace rubruf_module {

// Lets scripts import the module, for `provider`. A failure is reported, and is a failure of those imports only.
void Install(const PythonEventProvider* provider);

// Ends that. Harmless without an Install.
void Remove();

}  // namespace rubruf_module

#endif  // RUBRUF_PROVIDER_RUBRUF_MODULE_H_
