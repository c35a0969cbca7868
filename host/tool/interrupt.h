// Ending on SIGINT and SIGTERM.

#ifndef RUBRUF_HOST_TOOL_INTERRUPT_H_
#define RUBRUF_HOST_TOOL_INTERRUPT_H_

#include <chrono>

namespace standin {

// From here on the first signal is a wish to end after the running collection; a second one ends the process, whatever
// a script does.
void CatchInterrupts();
bool Interrupted();

// Returns after `time`, and early on an interrupt.
void Pause(std::chrono::duration<double> time);

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_INTERRUPT_H_
