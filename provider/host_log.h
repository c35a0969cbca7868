// The way of a script's line to the host's logger, from whatever thread.
//
// The host's log function is only called on the thread that drives the provider. A line of another thread waits until
// that thread is back in a callback; so does a line that the host's log function itself causes. All of this is called
// with the interpreter's lock held, which also guards the waiting lines.

#ifndef RUBRUF_PROVIDER_HOST_LOG_H_
#define RUBRUF_PROVIDER_HOST_LOG_H_

#include <cstddef>
#include <string>

namespace host_log {

// What a message of the logger holds behind the prefix that tells of its origin. A longer line is several messages.
constexpr size_t kLongestLine = 982;

// Begins a life of the provider on the calling thread, which is then the one that drives it. Harmless when called
// again.
void Begin();

// False between lives.
bool OnDrivingThread();

// Logs each line of `text` (UTF-8) at `level`, behind that prefix and behind the lines that wait, or has it wait.
// Between lives it is dropped. Throws std::bad_alloc.
void Write(int level, const std::string& text);

// Logs the beginning of a line that is too long for one message, and returns its length. What remains is not empty, and
// fits. 0 for any other line. Otherwise as Write.
size_t WriteBeginning(int level, const std::string& line);

// Logs the lines that wait. To be called in each callback of the provider.
void Flush();

// Ends the life and logs the lines that wait. The Flush at the callback's end would be too late for them, because
// Finalize may have given the interpreter's lock back by then. Lines that are added meanwhile are dropped.
void End();

}  // namespace host_log

#endif  // RUBRUF_PROVIDER_HOST_LOG_H_
