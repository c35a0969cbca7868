// The way of a script's line to the host's logger, from whatever thread.
//
// The host's log function is only called on the thread that drives the provider. A line of another thread waits until
// that thread is back in a callback. All of this is called with the interpreter's lock held, which also guards the
// waiting lines.

#ifndef RUBRUF_PROVIDER_HOST_LOG_H_
#define RUBRUF_PROVIDER_HOST_LOG_H_

#include <string>

namespace host_log {

// Begins a life of the provider on the calling thread, which is then the one that drives it. Harmless when called
// again.
void Begin();

// Logs each line of `text` (UTF-8) at `level`, behind a prefix that tells of its origin, or has it wait. Between lives
// it is dropped. Throws std::bad_alloc.
void Write(int level, const std::string& text);

// Logs the lines that wait. To be called in each callback of the provider.
void Flush();

// Ends the life, after a Flush.
void End();

}  // namespace host_log

#endif  // RUBRUF_PROVIDER_HOST_LOG_H_
