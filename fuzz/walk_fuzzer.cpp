// Fuzz target for the walk: random results with random refusals, compared with the model of the event stream.
//
// Each input is one life of the provider (from initialize to finalize) with a few collections. All inputs share one
// interpreter, because starting one is slow. Key IDs go on counting from life to life, in the model too.

#include <memory>

#include "fuzz/expect.h"
#include "host/standin/handles.h"
#include "model/stream_model.h"
#include "provider/entry.h"
#include "provider/provider.h"
#include "utils/dict/owned_dict.h"
#include "utils/log/log.h"
#include "utils/python_env/python_env.h"

namespace {

using fuzz::Expect, fuzz::ExpectEqual;

using Tokens = std::vector<standin::Token>;

PyObject* values = nullptr;  // owned; the variables of the statements that make a result
uint32_t next_key_id = 0;
int messages = 0;

// Runs the Python statements that make `result`.
void Make(const stream_model::Ref& result) {
  PyDict_Clear(values);
  PyObject* none = PyRun_String(stream_model::ToPython(result).c_str(), Py_file_input, values, values);
  Expect(none != nullptr, "Python takes the model's statements");
  Py_DECREF(none);
}

// The sum of the reference counts of all lists, dictionaries and scalars in the result.
Py_ssize_t References() {
  Py_ssize_t references = 0;
  Py_ssize_t position = 0;
  for (PyObject *name, *value; PyDict_Next(values, &position, &name, &value);) references += Py_REFCNT(value);
  return references;
}

class Life {
 public:
  // Configures two scripts with the module that LLVMFuzzerInitialize makes, so no file is needed. The second script is
  // tolerant and asks for a forced synchronisation.
  Life() {
    const OwnedDict options(tev_dict_create());
    tev_dict_add(options.get(), "enable-provider", "python");
    tev_dict_add(options.get(), "python-import-num-scripts", "2");
    tev_dict_add(options.get(), "python-import-file", "/fuzzed.py");
    tev_dict_add(options.get(), "python-import-2-force-sync", "1");
    tev_dict_add(options.get(), "python-import-2-tolerant", "1");
    provider_ = construct_event_provider(options.get());
    Expect(provider_ != nullptr && provider_->initialize(provider_, &type_system_), "a life begins");
    ids_.next = next_key_id;
  }
  ~Life() {
    Finalize();
    next_key_id = ids_.next;
  }
  Life(const Life&) = delete;
  Life& operator=(const Life&) = delete;

  void Finalize() { provider_->finalize(provider_); }

  // Runs one collection, to its end or until a random number ends it early. False if it was ended early or is stuck:
  // the next call must then be Finalize.
  bool Collect(const stream_model::Ref& result, const stream_model::Random& draw) {
    const uint32_t first_new_id = ids_.next;
    messages = 0;

    // A pattern of 32 bits, used again and again, says which tokens are refused. Its lowest bit is 0, so each token is
    // taken in the end.
    const uint32_t refused = (draw() | draw() << 8 | draw() << 16 | draw() << 24) & ~1U;
    tev_data_serializer_t buffer;
    buffer.refuse = [=, offered = 0U](const auto&) mutable { return (refused >> (offered++ % 32) & 1) != 0; };
    uint32_t index = draw() % 2;
    auto [expected, complete, sticks, left_out] = stream_model::StreamOf(result, &ids_, index == 1);
    tev_progress_status_t status = 0;
    while ((status = provider_->progress(provider_, index, &buffer)) == TEV_PROGRESS_REFUSED) {
      const uint32_t event = draw();
      index = event % 4;  // a walk goes on whatever the index is, even if no script has it
      if (event % 16 == 14) CheckSources();
      if (event == 255) break;
    }
    const Tokens tokens = buffer.Drain();
    const bool given_up = status == TEV_PROGRESS_REFUSED;
    if (given_up) GiveNumbersBack(expected, tokens.size(), first_new_id);
    if (given_up) expected.resize(tokens.size());
    if (!expected.empty()) expected[0].payload = standin::PayloadOf(standin::NumberIn<uint64_t>(tokens.at(0)));
    ExpectEqual(tokens, expected, tokens == expected ? "" : "the tokens of\n" + stream_model::ToPython(result));
    const bool forced = index == 1 && !expected.empty();
    const uint32_t done = forced ? TEV_PROGRESS_DONE_FORCE_SYNC : TEV_PROGRESS_DONE;
    if (!given_up) ExpectEqual(messages == 0, complete && left_out == 0, "whether no message is logged");
    if (!given_up) ExpectEqual(status, sticks ? TEV_PROGRESS_ERROR : done, "the status");
    return !given_up && !sticks;
  }

 private:
  // The model has numbered all keys of the result. Takes back the numbers of keys that the walk has not reached.
  void GiveNumbersBack(const Tokens& expected, size_t refused, uint32_t first_new_id) {
    ids_.next = first_new_id;
    for (size_t i = 0; i <= refused; ++i) {
      if (expected.at(i).type == standin::kKeyName) ids_.next = std::max(ids_.next, expected[i].key_id + 1);
    }
  }

  void CheckSources() {
    const standin::SourceArray sources(provider_->get_sources(provider_));
    Expect(sources && sources->sources.size() == 2 && sources->sources[0]->tag == "dict_told",
           "the sources during a walk");
  }

  tev_event_provider_t* provider_;
  tev_type_system_t type_system_;
  stream_model::KeyIds ids_;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  setenv("PYTHONMALLOC", "malloc", 0);  // so that the sanitizer sees each object
  set_log_func([](int, const char*) { ++messages; }, TEV_LOG_WARNING);
  Expect(tev_python_environment_init() == 0, "Python starts");
  values = PyDict_New();
  PyObject* const main = PyImport_AddModule("__main__");
  Expect(PyObject_SetAttrString(main, "values", values) == 0, "a variable is set");
  // Each life appends a directory to sys.path. This sys.path ignores that, so it does not grow.
  const int failed = PyRun_SimpleString(
      "import sys, types\n"
      "sys.path = type('Path', (list,), {'append': lambda path, directory: None})(sys.path)\n"
      "fuzzed = sys.modules['fuzzed'] = types.ModuleType('fuzzed')\n"
      "fuzzed.collect = lambda arguments: values['result']\n"
      "fuzzed.get_tag = lambda: 'told'\n");
  Expect(failed == 0, "the script is made");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Random numbers are the input's bytes, from the last to the first, and then zeros.
  const stream_model::Random draw = [data, &size] { return size == 0 ? 0U : data[--size]; };
  Life life;
  for (bool goes_on = true; goes_on && size > 0;) {
    const stream_model::Ref result = stream_model::RandomResult(draw);
    Make(result);
    const Py_ssize_t references = References();
    goes_on = life.Collect(result, draw);
    if (!goes_on) life.Finalize();
    ExpectEqual(References(), references, "the references to the result");
  }
  PyDict_Clear(values);  // memory that stays allocated makes the fuzzer run its slow leak check
  return 0;
}
