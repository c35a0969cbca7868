// PythonModule. It uses only functions of CPython that are the same in every version.

#include "host/standin/python_module.h"

#include <stdexcept>

namespace standin {
namespace {

constexpr int kFileInput = 257;  // Py_file_input: the source of a module

}  // namespace

PythonModule::Lock::Lock(const Plugin* plugin)
    : plugin_(plugin), state_(plugin->Symbol<int (*)()>("PyGILState_Ensure")()) {}

PythonModule::Lock::~Lock() { plugin_->Symbol<void (*)(int)>("PyGILState_Release")(state_); }

void PythonModule::Release::operator()(void* object) const {
  const Lock lock(plugin);
  plugin->Symbol<void (*)(void*)>("Py_DecRef")(object);
}

void PythonModule::Stop::operator()(const Plugin* plugin) const {
  plugin->Symbol<int (*)()>("tev_python_environment_finalize")();
}

PythonModule::PythonModule(const Plugin& plugin, const std::vector<Source>& sources)
    : call_(nullptr, Release{&plugin}) {
  if (plugin.Symbol<int (*)()>("tev_python_environment_init")() != 0) {
    throw std::runtime_error("the plug-in cannot start its interpreter");
  }
  interpreter_.reset(&plugin);
  Object module(nullptr, Release{&plugin});
  for (const Source& source : sources) module = Execute(source);
  // The function is found only once, because each search by a C text leaves an entry in Python's attribute cache. That
  // would look like memory that a script keeps.
  call_ = Own(plugin.Symbol<void* (*)(void*, const char*)>("PyObject_GetAttrString")(module.get(), "call"), "call");
}

PythonModule::Object PythonModule::Execute(const Source& source) const {
  const auto compile = interpreter_->Symbol<void* (*)(const char*, const char*, int)>("Py_CompileString");
  const auto execute = interpreter_->Symbol<void* (*)(const char*, void*)>("PyImport_ExecCodeModule");
  const Object code = Own(compile(source.text, source.name, kFileInput), source.name);
  return Own(execute(source.name, code.get()), source.name);
}

std::string PythonModule::Call(const char* function, const std::string& text) const {
  const Plugin& plugin = *interpreter_;
  const Lock lock(&plugin);
  // A walk may leave an error pending. It would be taken for an error of this call.
  plugin.Symbol<void (*)()>("PyErr_Clear")();
  const auto call = plugin.Symbol<void* (*)(void*, const char*, ...)>("PyObject_CallFunction");
  const Object answer = Own(call(call_.get(), "ss", function, text.c_str()), function);
  const char* answer_text = plugin.Symbol<const char* (*)(void*)>("PyUnicode_AsUTF8")(answer.get());
  if (!answer_text) throw std::runtime_error(std::string(function) + " returned no text");
  return answer_text;
}

PythonModule::Object PythonModule::Own(void* object, const char* what) const {
  if (!object) {
    interpreter_->Symbol<void (*)()>("PyErr_Print")();
    throw std::runtime_error(std::string("Python failed in ") + what + ": its error stands above");
  }
  return Object(object, Release{interpreter_.get()});
}

}  // namespace standin
