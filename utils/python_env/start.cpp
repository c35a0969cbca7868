// The start of the interpreter: like Py_InitializeEx(0), but a failure is a message and not the end of the process.

#include <csignal>
#include <cstring>

#include "utils/log/log.h"
#include "utils/python_env/cpython_layout.h"
#include "utils/python_env/interpreter.h"
#include "utils/python_env/life.h"

namespace {

// Fills `config` as Py_InitializeEx(0) does. CPython does not export the function that it uses for that.
void ConfigureLikeInitializeEx(PyConfig* config) {
  PyConfig_InitPythonConfig(config);
  config->_config_init = kConfigInitCompat;
  config->configure_c_stdio = 0;
  config->parse_argv = 0;
  config->install_signal_handlers = 0;
  // -1: from CPython's global variables, which a host may have set.
  int* const inherited[] = {&config->isolated,       &config->use_environment,
                            &config->site_import,    &config->bytes_warning,
                            &config->inspect,        &config->interactive,
                            &config->parser_debug,   &config->optimization_level,
                            &config->write_bytecode, &config->verbose,
                            &config->quiet,          &config->user_site_directory,
                            &config->buffered_stdio, &config->pathconfig_warnings};
  for (int* value : inherited) *value = -1;
}

PyStatus Start(bool trace_memory) {
  PyConfig config;
  ConfigureLikeInitializeEx(&config);
  if (!trace_memory) config.tracemalloc = 0;
  const PyStatus status = Py_InitializeFromConfig(&config);
  PyConfig_Clear(&config);
  return status;
}

// Logs the status, and the exception that an interpreter which is up halfway has left. The exception is then cleared.
void LogFailure(const PyStatus& status) {
  const char* const reason = status.err_msg != nullptr ? status.err_msg : "no reason given";
  const bool halfway = PyGILState_GetThisThreadState() != nullptr;
  PyObject* type = nullptr;
  PyObject* value = nullptr;
  PyObject* traceback = nullptr;
  if (halfway) PyErr_Fetch(&type, &value, &traceback);
  const OwnedRef owned[] = {OwnedRef(type), OwnedRef(value), OwnedRef(traceback)};
  const OwnedRef text(value != nullptr ? PyObject_Str(value) : nullptr);
  const char* const cause = text ? PyUnicode_AsUTF8(text.get()) : nullptr;
  TEV_UTIL_LOG(TEV_LOG_ERROR, "[python environment] Python did not start: %s%s%s", reason, cause ? ": " : "",
               cause ? cause : "");
  if (halfway) PyErr_Clear();
}

// Gives SIGINT back. Despite the argument of Py_InitializeEx, CPython's signal module, once imported, takes SIGINT from
// a host that has no handler, and sets the default at the stop, whatever the host has installed since.
void ReleaseInterrupt() {
  const OwnedRef signals(PyImport_ImportModule("_signal"));
  const OwnedRef pythons(signals ? PyObject_GetAttrString(signals.get(), "default_int_handler") : nullptr);
  const OwnedRef handler(pythons ? PyObject_CallMethod(signals.get(), "getsignal", "i", SIGINT) : nullptr);
  const OwnedRef by_default(handler ? PyObject_GetAttrString(signals.get(), "SIG_DFL") : nullptr);
  if (by_default && handler == pythons) {
    const OwnedRef before(PyObject_CallMethod(signals.get(), "signal", "iO", SIGINT, by_default.get()));
  }
  PyErr_Clear();
}

}  // namespace

void StartInterpreter() {
  PyStatus status = Start(true);
  // Up to 3.11 PYTHONTRACEMALLOC works in one interpreter of a process only. Later ones start without it.
  const bool cannot_trace = status.err_msg != nullptr && strstr(status.err_msg, "initialize tracemalloc") != nullptr;
  if (PyStatus_Exception(status) != 0 && cannot_trace) {
    PyErr_Clear();
    status = Start(false);
  }
  if (PyStatus_Exception(status) != 0) LogFailure(status);
  if (Py_IsInitialized() == 0) return;
  ReleaseInterrupt();
  LoadLife();
  CallLife("begin");
}
