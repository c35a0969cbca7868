// The replacements of sys.stdout and sys.stderr: text streams of Python on top of raw streams that this file
// implements.

#include "provider/script_output.h"

#include <unistd.h>

#include <new>
#include <string>
#include <utility>

#include "provider/host_log.h"
#include "provider/keep_loaded.h"
#include "utils/log/log.h"
#include "utils/python_env/owned_ref.h"
#include "utils/python_env/python.h"

namespace {

struct Stream {
  const char* name;      // in sys
  const char* ours;      // the name in sys under which our stream stays from the first Install on, for all lives
  const char* replaced;  // the name in sys of the replaced stream, from Install to Remove
  const char* label;     // the stream's attribute `name`
  int level;
  // The unfinished lines of the thread that drives the provider, and of all other threads. Never destroyed, because
  // threads of scripts may print until the process ends.
  std::string& own_line;
  std::string& others_line;
};

Stream streams[] = {
    {"stdout", "_rubruf_stdout", "_rubruf_replaced_stdout", "<stdout>", TEV_LOG_INFO, *new std::string,
     *new std::string},
    {"stderr", "_rubruf_stderr", "_rubruf_replaced_stderr", "<stderr>", TEV_LOG_ERROR, *new std::string,
     *new std::string},
};
bool installed = false;

// Where memory runs out, the line is lost.
void EndLine(std::string& line, int level) {
  if (line.empty()) return;
  try {
    host_log::Write(level, std::exchange(line, {}));
  } catch (const std::bad_alloc&) {
  }
}

// Logs the lines that end in `text`. Keeps the rest until its line ends or fills a message. Throws std::bad_alloc.
void Append(Stream& stream, const char* text, size_t size) {
  std::string& line = host_log::OnDrivingThread() ? stream.own_line : stream.others_line;
  // The line is taken out first, because the host's log function may print and so call Append again.
  std::string whole = std::exchange(line, {});
  whole.append(text, size);
  const size_t ended = whole.rfind('\n') + 1;  // 0 without a line end
  if (ended > 0) host_log::Write(stream.level, whole.substr(0, ended));
  whole.erase(0, ended);
  line.append(whole, host_log::WriteBeginning(stream.level, whole));
}

int DescriptorOf(PyObject* descriptor) { return static_cast<int>(PyLong_AsLong(descriptor)); }

// Writes to the process's own stream, because between lives there is no log.
void WriteToProcess(int descriptor, const char* text, Py_ssize_t size) {
  Py_BEGIN_ALLOW_THREADS;
  while (size > 0) {
    const ssize_t written = write(descriptor, text, static_cast<size_t>(size));
    if (written <= 0) break;
    text += written;
    size -= written;
  }
  Py_END_ALLOW_THREADS;
}

// write(bytes) of a raw stream. As in the two functions behind it, `descriptor` is the stream's.
PyObject* Write(PyObject* descriptor, PyObject* bytes) {
  Py_buffer buffer;
  if (PyObject_GetBuffer(bytes, &buffer, PyBUF_SIMPLE) != 0) return nullptr;
  const int number = DescriptorOf(descriptor);
  const auto* text = static_cast<const char*>(buffer.buf);
  const Py_ssize_t size = buffer.len;
  bool has_memory = true;
  if (installed) {
    try {
      Append(streams[number - STDOUT_FILENO], text, static_cast<size_t>(size));
    } catch (const std::bad_alloc&) {
      has_memory = false;
    }
  } else {
    WriteToProcess(number, text, size);
  }
  PyBuffer_Release(&buffer);
  return has_memory ? PyLong_FromSsize_t(size) : PyErr_NoMemory();
}

PyObject* Writable(PyObject* /*descriptor*/, PyObject* /*none*/) { Py_RETURN_TRUE; }

// Programs that a script starts write to the process's own streams.
PyObject* Fileno(PyObject* descriptor, PyObject* /*none*/) {
  Py_INCREF(descriptor);
  return descriptor;
}

PyMethodDef functions[] = {{"write", Write, METH_O, nullptr},
                           {"writable", Writable, METH_NOARGS, nullptr},
                           {"fileno", Fileno, METH_NOARGS, nullptr}};

// A raw stream. Functions written in C do not bind to an instance, so each has its descriptor from the start. Null with
// a Python error.
OwnedRef MakeRawStream(PyObject* io, const Stream& stream, int descriptor) {
  const OwnedRef number(PyLong_FromLong(descriptor));
  const OwnedRef base(PyObject_GetAttrString(io, "_RawIOBase"));
  const OwnedRef members(number && base ? Py_BuildValue("{ssss}", "name", stream.label, "mode", "w") : nullptr);
  if (!members) return nullptr;
  for (PyMethodDef& definition : functions) {
    const OwnedRef function(PyCFunction_New(&definition, number.get()));
    if (!function || PyDict_SetItemString(members.get(), definition.ml_name, function.get()) != 0) return nullptr;
  }
  const OwnedRef type(PyObject_CallFunction(reinterpret_cast<PyObject*>(&PyType_Type), "s(O)O", "ScriptOutput",
                                            base.get(), members.get()));
  return OwnedRef(type ? PyObject_CallObject(type.get(), nullptr) : nullptr);
}

// Writes each text through at once, and escapes what UTF-8 cannot carry. Null with a Python error.
OwnedRef MakeStream(const Stream& stream, int descriptor) {
  const OwnedRef io(PyImport_ImportModule("_io"));
  const OwnedRef raw(io ? MakeRawStream(io.get(), stream, descriptor) : nullptr);
  if (!raw) return nullptr;
  return OwnedRef(PyObject_CallMethod(io.get(), "TextIOWrapper", "OssOOO", raw.get(), "utf-8", "backslashreplace",
                                      Py_None, Py_False, Py_True));
}

// The stream of an earlier life in this interpreter, if no script has closed it: logging handlers may still hold it.
// Null with a Python error.
OwnedRef FindOrMakeStream(const Stream& stream, int descriptor) {
  PyObject* const found = PySys_GetObject(stream.ours);  // borrowed
  if (found != nullptr) {
    OwnedRef earlier = NewRef(found);
    const OwnedRef closed(PyObject_GetAttrString(found, "closed"));
    if (closed.get() == Py_False) return earlier;
    PyErr_Clear();
  }
  return MakeStream(stream, descriptor);
}

bool Replace(const Stream& stream, int descriptor) {
  const OwnedRef ours = FindOrMakeStream(stream, descriptor);
  PyObject* const before = PySys_GetObject(stream.name);  // borrowed; null if a script has deleted it
  return ours && PySys_SetObject(stream.replaced, before != nullptr ? before : Py_None) == 0 &&
         PySys_SetObject(stream.ours, ours.get()) == 0 && PySys_SetObject(stream.name, ours.get()) == 0;
}

// Puts the replaced stream back, unless a script has put another one in the place of ours.
void PutBack(const Stream& stream) {
  PyObject* const found = PySys_GetObject(stream.replaced);  // borrowed
  if (found == nullptr) return;
  const OwnedRef replaced = NewRef(found);
  PyObject* const present = PySys_GetObject(stream.name);  // borrowed
  if (present != nullptr && present == PySys_GetObject(stream.ours)) PySys_SetObject(stream.name, replaced.get());
  PySys_SetObject(stream.replaced, Py_None);
  PyErr_Clear();
}

}  // namespace

void script_output::Install() {
  KeepLibraryLoaded();
  installed = true;
  int descriptor = STDOUT_FILENO;
  for (const Stream& stream : streams) {
    if (Replace(stream, descriptor++)) continue;
    PyErr_Clear();
    TEV_LOG(TEV_LOG_WARNING, "[python provider] sys.%s does not reach the log", stream.name);
  }
}

void script_output::EndLines() {
  if (!installed) return;
  for (Stream& stream : streams) EndLine(stream.own_line, stream.level);
}

void script_output::Remove(bool python_runs) {
  if (!installed) return;
  for (Stream& stream : streams) {
    EndLine(stream.own_line, stream.level);
    EndLine(stream.others_line, stream.level);
    if (python_runs) PutBack(stream);
  }
  installed = false;
}
