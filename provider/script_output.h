// Leads what scripts write to sys.stdout and sys.stderr to the host's logger, line by line.
//
// Standard output is logged at info level, standard error at error level, and with it tracebacks and warnings. A line
// is logged when it ends. On the thread that drives the provider an unfinished line is also logged when its callback
// returns.
//
// Scripts may keep the streams beyond a life of the provider, in logging handlers for instance. Between lives these
// streams write to the process's standard output and standard error.
//
// All of this is called with the interpreter's lock held.

#ifndef RUBRUF_PROVIDER_SCRIPT_OUTPUT_H_
#define RUBRUF_PROVIDER_SCRIPT_OUTPUT_H_

namespace script_output {

// Replaces the two streams for a life of the provider. Without success, which a warning tells, they stay as they are.
void Install();

// Logs the unfinished lines of the thread that drives the provider. Nothing between lives.
void EndLines();

// Logs all unfinished lines and puts the streams back, if scripts have not replaced them. The interpreter may have been
// stopped before (`python_runs` is then false); what its end printed is then logged. Harmless without an Install.
void Remove(bool python_runs);

}  // namespace script_output

#endif  // RUBRUF_PROVIDER_SCRIPT_OUTPUT_H_
