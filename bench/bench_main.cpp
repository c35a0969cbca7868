// The benchmark: measures collections through the plug-in, the floor (floor.h), and the usual serializers, all on the
// same prebuilt objects in one process. bench/report.py makes the table.
//
//   rubruf-bench LIBRARY SHAPES_PY [Google Benchmark's options]
//   rubruf-bench version                               prints Python's version
//   rubruf-bench LIBRARY SHAPES_PY startup SCRIPTS     nanoseconds from construct to get-sources, for SCRIPTS scripts
//   rubruf-bench LIBRARY SHAPES_PY walk SHAPE          one warm collection, for an instruction counter
//   rubruf-bench LIBRARY SHAPES_PY memory              bytes that the plug-in keeps for an open level and for a key
//   name

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/floor.h"
#include "bench/ring_writer.h"
#include "host/standin/host_options.h"
#include "host/standin/plugin.h"
#include "utils/python_env/owned_ref.h"

namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void Fail(const std::string& what) {
  if (PyErr_Occurred() != nullptr) PyErr_Print();
  fprintf(stderr, "rubruf-bench: %s\n", what.c_str());
  exit(EXIT_FAILURE);
}

PyObject* Check(PyObject* object, const char* what) {
  if (object == nullptr) Fail(what);
  return object;
}

// A life of the plug-in with one script, the shapes module. There is one in the process, used on one thread.
class Session {
 public:
  Session(const char* library, const char* shapes, int scripts) : plugin_(library) {
    standin::HostOptions options(plugin_, {{"enable-provider", "python"},
                                           {"python-import-num-scripts", std::to_string(scripts)},
                                           {"python-import-file", shapes}});
    const auto start = Clock::now();
    provider_ = plugin_.Construct(options.get());
    if (provider_ == nullptr || !provider_->initialize(provider_, nullptr)) Fail("the plug-in does not start");
    if (provider_->get_sources(provider_) == nullptr) Fail("no sources");
    startup_ = Clock::now() - start;
    module_.reset(Check(PyImport_ImportModule("shapes"), "no shapes"));
  }

  PyObject* module() const { return module_.get(); }
  std::chrono::nanoseconds startup() const { return startup_; }

  // Makes the script return `result` (borrowed) from now on.
  void Return(PyObject* result) { PyObject_SetAttrString(module(), "current", result); }

  void Collect(tev_data_serializer_t* ring) {
    tev_progress_status_t status = TEV_PROGRESS_REFUSED;
    while (status == TEV_PROGRESS_REFUSED) status = provider_->progress(provider_, 0, ring);
    if (status != TEV_PROGRESS_DONE) Fail("a collection failed");
  }

  OwnedRef Build(PyObject* builder) { return OwnedRef(Check(PyObject_CallObject(builder, nullptr), "no result")); }
  OwnedRef Attribute(const char* name) { return OwnedRef(Check(PyObject_GetAttrString(module(), name), name)); }

 private:
  standin::Plugin plugin_;
  tev_event_provider_t* provider_ = nullptr;
  std::chrono::nanoseconds startup_{};
  OwnedRef module_;
};

Session* session;
tev_data_serializer_t ring;

// A serializer to compare with: "json.dumps" and the like, with a protocol number if its default is not wanted.
struct Rival {
  const char* name;
  const char* module;
  const char* function;
  int protocol;  // 0: no further argument
};
constexpr Rival kRivals[] = {{"json", "json", "dumps", 0},
                             {"pickle", "pickle", "dumps", 5},
                             {"marshal", "marshal", "dumps", 4},
                             {"msgpack", "msgpack", "packb", 0},
                             {"ujson", "ujson", "dumps", 0}};

// Times `call` on a result; `fresh` builds a new result before each call, outside the time.
template <typename Call>
void Measure(benchmark::State& state, PyObject* builder, bool fresh, Call call) {
  OwnedRef result = session->Build(builder);
  session->Return(result.get());
  call(result.get());
  ring.tokens = 0;
  session->Collect(&ring);
  const uint64_t tokens = ring.tokens;
  for (auto _ : state) {
    if (fresh) {
      result = session->Build(builder);
      session->Return(result.get());
    }
    const auto start = Clock::now();
    call(result.get());
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
  }
  state.counters["tokens"] = static_cast<double>(tokens);
}

template <typename Call>
void Register(const std::string& shape, const char* runner, PyObject* builder, bool fresh, Call call) {
  auto* registered = benchmark::RegisterBenchmark(
      (shape + "/" + runner).c_str(), [=](benchmark::State& state) { Measure(state, builder, fresh, call); });
  registered->UseManualTime()->Unit(benchmark::kNanosecond);
  // The registry never drops a name. Without a limit it would grow with the speed of the machine.
  if (fresh) registered->Iterations(3);
}

void RegisterOurs(const std::string& shape, PyObject* builder, bool fresh) {
  Register(shape, "rubruf", builder, fresh, [](PyObject*) { session->Collect(&ring); });
}

void RegisterShape(const std::string& shape, PyObject* builder, bool fresh) {
  RegisterOurs(shape, builder, fresh);
  Register(shape, "floor", builder, fresh, [](PyObject* result) { WriteByRecursion(result, &ring); });
  Register(shape, "refused", builder, fresh, [](PyObject*) {
    ring.refuse_every_token_once = true;
    session->Collect(&ring);
    ring.refuse_every_token_once = false;
  });
  for (const Rival& rival : kRivals) {
    PyObject* module = PyImport_ImportModule(rival.module);
    if (module == nullptr) {
      PyErr_Clear();
      continue;
    }
    PyObject* function = Check(PyObject_GetAttrString(module, rival.function), rival.function);
    PyObject* protocol = rival.protocol == 0 ? nullptr : PyLong_FromLong(rival.protocol);
    Register(shape, rival.name, builder, fresh, [=](PyObject* result) {
      OwnedRef dumped(PyObject_CallFunctionObjArgs(function, result, protocol, nullptr));
      Check(dumped.get(), rival.name);
    });
  }
}

int RunBenchmarks(int argc, char** argv) {
  const OwnedRef shapes = session->Attribute("SHAPES");
  const OwnedRef fresh = session->Attribute("FRESH");
  const OwnedRef growth = session->Attribute("GROWTH");
  Py_ssize_t position = 0;
  PyObject* name = nullptr;
  PyObject* builder = nullptr;
  while (PyDict_Next(shapes.get(), &position, &name, &builder) != 0) {
    RegisterShape(PyUnicode_AsUTF8(name), builder, PySequence_Contains(fresh.get(), name) == 1);
  }
  position = 0;
  while (PyDict_Next(growth.get(), &position, &name, &builder) != 0) {
    RegisterOurs(PyUnicode_AsUTF8(name), builder, false);
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return EXIT_FAILURE;
  benchmark::RunSpecifiedBenchmarks();
  return EXIT_SUCCESS;
}

// A function of its own, so that an instruction counter can find the collection by its name.
extern "C" __attribute__((noinline)) void WatchedCollection() { session->Collect(&ring); }

// Collects once to warm up, and once for the counter.
int Walk(const char* shape) {
  const OwnedRef shapes = session->Attribute("SHAPES");
  const OwnedRef result = session->Build(Check(PyDict_GetItemString(shapes.get(), shape), "no such shape"));
  session->Return(result.get());
  session->Collect(&ring);
  ring.tokens = 0;
  WatchedCollection();
  printf("%llu\n", static_cast<unsigned long long>(ring.tokens));
  return EXIT_SUCCESS;
}

// The growth of the heap in the first collection of a result whose building is `builder`(count), per element. Python's
// own objects are all made before.
double HeapPer(const char* builder, long count) {
  const OwnedRef argument(PyLong_FromLong(count));
  const OwnedRef function = session->Attribute(builder);
  const OwnedRef result(Check(PyObject_CallFunctionObjArgs(function.get(), argument.get(), nullptr), builder));
  session->Return(result.get());
  const size_t before = mallinfo2().uordblks + mallinfo2().hblkhd;
  session->Collect(&ring);
  return static_cast<double>(mallinfo2().uordblks + mallinfo2().hblkhd - before) / static_cast<double>(count);
}

int Memory() {
  printf("{\"bytes per open level\": %.1f, \"bytes per key name\": %.1f}\n", HeapPer("nested", 100000),
         HeapPer("metrics", 100000));
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && strcmp(argv[1], "version") == 0) {
    puts(PY_VERSION);
    return EXIT_SUCCESS;
  }
  if (argc < 3) Fail("usage: rubruf-bench LIBRARY SHAPES_PY [startup SCRIPTS | walk SHAPE | memory | OPTIONS]");
  const std::string mode = argc > 3 ? argv[3] : "";
  const bool startup = mode == "startup" && argc > 4;
  // The interpreter runs to the end of the process, because the benchmarks own Python objects.
  session = new Session(argv[1], argv[2], startup ? atoi(argv[4]) : 1);
  if (startup) {
    printf("%lld\n", static_cast<long long>(session->startup().count()));
    return EXIT_SUCCESS;
  }
  if (mode == "walk" && argc > 4) return Walk(argv[4]);
  if (mode == "memory") return Memory();
  argv[2] = argv[0];
  return RunBenchmarks(argc - 2, argv + 2);
}
