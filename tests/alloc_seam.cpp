// The test's own allocation functions. They run from the first moment of the process, before any sanitizer is up, so
// this file is built without instrumentation.

#include "tests/alloc_seam.h"

#include <dlfcn.h>
#include <link.h>
#include <unwind.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

namespace {

enum class Origin { kLibrary, kRuntime, kOther };
struct Range {
  uintptr_t begin, end;
  Origin origin;
};
Range ranges[8];
Range* ranges_end = ranges;

// Disguised, so that the leak checker does not take this table for an owner of the blocks.
uintptr_t live[1 << 12];
uintptr_t* live_end = live;

int first_failing = 0;  // 0: none
bool all_fail = false;
int counted = 0;

uintptr_t Disguised(const void* block) { return ~reinterpret_cast<uintptr_t>(block); }

Origin OriginOf(uintptr_t address) {
  const Range* const range = std::find_if(
      ranges, ranges_end, [=](const Range& known) { return known.begin <= address && address < known.end; });
  return range == ranges_end ? Origin::kOther : range->origin;
}

// Walks from `caller` out of the runtimes, to whoever called those.
struct Search {
  uintptr_t caller;
  bool reached = false;
  Origin origin = Origin::kRuntime;
};
_Unwind_Reason_Code Visit(_Unwind_Context* context, void* argument) {
  auto* search = static_cast<Search*>(argument);
  const uintptr_t address = _Unwind_GetIP(context);
  search->reached = search->reached || address == search->caller;
  if (search->reached) search->origin = OriginOf(address);
  return search->origin == Origin::kRuntime ? _URC_NO_REASON : _URC_END_OF_STACK;
}

bool IsLibrary(void* caller) {
  Search search{reinterpret_cast<uintptr_t>(caller)};
  search.origin = OriginOf(search.caller);
  if (search.origin == Origin::kRuntime) _Unwind_Backtrace(Visit, &search);
  return search.origin == Origin::kLibrary;
}

bool Fails() {
  ++counted;
  return first_failing != 0 && (all_fail ? counted >= first_failing : counted == first_failing);
}

void Forget(const void* block) {
  uintptr_t* const found = std::find(live, live_end, Disguised(block));
  if (found != live_end) *found = *--live_end;
}

// The block that `next` gives, unless `caller` is the library and this allocation is to fail.
template <class Next>
void* Allocate(void* caller, Next next) {
  if (!IsLibrary(caller)) return next();
  if (Fails()) {
    errno = ENOMEM;
    return nullptr;
  }
  void* const block = next();
  if (live_end == std::end(live)) abort();
  *live_end++ = Disguised(block);
  return block;
}

// The functions that those of this file hide: the C library's, or the sanitizer's. They are looked up all at once by
// the first allocation: a later one may come from within a look-up, which is not to be entered again.
struct Hidden {
  decltype(&::free) free;
  decltype(&::malloc) malloc;
  decltype(&::calloc) calloc;
  decltype(&::realloc) realloc;
  decltype(&::strdup) strdup;
  decltype(&::strndup) strndup;
};
Hidden found;

template <class Function>
void LookUp(Function** function, const char* name) {
  *function = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

const Hidden& HiddenOnes() {
  if (found.free == nullptr) {
    LookUp(&found.free, "free");
    LookUp(&found.malloc, "malloc");
    LookUp(&found.calloc, "calloc");
    LookUp(&found.realloc, "realloc");
    LookUp(&found.strdup, "strdup");
    LookUp(&found.strndup, "strndup");
  }
  return found;
}

void* AllocateOrThrow(void* caller, size_t size) {
  if (void* const block = Allocate(caller, [=] { return HiddenOnes().malloc(size); })) return block;
  throw std::bad_alloc();
}

}  // namespace

#define CALLER __builtin_return_address(0)

extern "C" {
void* malloc(size_t size) noexcept {
  return Allocate(CALLER, [=] { return HiddenOnes().malloc(size); });
}
void* calloc(size_t count, size_t size) noexcept {
  return Allocate(CALLER, [=] { return HiddenOnes().calloc(count, size); });
}
void* realloc(void* block, size_t size) noexcept {
  return Allocate(CALLER, [=] {
    Forget(block);
    return HiddenOnes().realloc(block, size);
  });
}
void free(void* block) noexcept {
  Forget(block);
  HiddenOnes().free(block);
}
// A sanitizer's own take their memory without asking malloc.
char* strdup(const char* text) noexcept {
  return static_cast<char*>(Allocate(CALLER, [=] { return HiddenOnes().strdup(text); }));
}
char* strndup(const char* text, size_t size) noexcept {
  return static_cast<char*>(Allocate(CALLER, [=] { return HiddenOnes().strndup(text, size); }));
}
}

void* operator new(size_t size) { return AllocateOrThrow(CALLER, size); }
void* operator new[](size_t size) { return AllocateOrThrow(CALLER, size); }
void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept { return malloc(size); }
void operator delete(void* block) noexcept { free(block); }
void operator delete[](void* block) noexcept { free(block); }
void operator delete(void* block, size_t /*size*/) noexcept { free(block); }
void operator delete[](void* block, size_t /*size*/) noexcept { free(block); }

namespace alloc_seam {

void Watch() {
  const auto add = [](dl_phdr_info* object, size_t /*size*/, void* /*user*/) {
    const bool is_library = strstr(object->dlpi_name, "librubruf") != nullptr;
    bool is_runtime = false;
    for (const char* name : {"/libc.so", "/libstdc++.so", "/libboost_filesystem.so", "/libasan.so"}) {
      is_runtime = is_runtime || strstr(object->dlpi_name, name) != nullptr;
    }
    if (!is_library && !is_runtime) return 0;
    Range range{UINTPTR_MAX, 0, is_library ? Origin::kLibrary : Origin::kRuntime};
    for (int i = 0; i < object->dlpi_phnum; ++i) {
      const auto& segment = object->dlpi_phdr[i];
      if (segment.p_type != PT_LOAD) continue;
      range.begin = std::min(range.begin, object->dlpi_addr + segment.p_vaddr);
      range.end = std::max(range.end, object->dlpi_addr + segment.p_vaddr + segment.p_memsz);
    }
    *ranges_end++ = range;
    return 0;
  };
  ranges_end = ranges;
  dl_iterate_phdr(add, nullptr);
}

int Live() { return static_cast<int>(live_end - live); }

Failure::Failure(int first, bool all) {
  first_failing = first;
  all_fail = all;
  counted = 0;
}
Failure::~Failure() { first_failing = 0; }
bool Failure::struck() const { return counted >= first_failing; }

}  // namespace alloc_seam
