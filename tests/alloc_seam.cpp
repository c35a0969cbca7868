// The allocation seam: the test's own malloc, free and operator new. This file is built without sanitizers, because its
// functions are called before a sanitizer is initialized.

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

// The library's live blocks. Addresses are inverted, because a plain address would hide a leak from the leak checker.
uintptr_t live[1 << 12];
uintptr_t* live_end = live;

int first_failing = 0;  // 0: none fails
bool all_fail = false;
int counted = 0;

// The functions of the C library or the sanitizer that this file replaces.
decltype(&realloc) hidden_realloc;
decltype(&free) hidden_free;

Origin OriginOf(uintptr_t address) {
  const Range* const range = std::find_if(
      ranges, ranges_end, [=](const Range& known) { return known.begin <= address && address < known.end; });
  return range == ranges_end ? Origin::kOther : range->origin;
}

// A walk up the stack: it looks for `caller`, and from there for the first function outside the runtime libraries.
struct Search {
  uintptr_t caller;
  Origin origin;
  bool reached;
};
_Unwind_Reason_Code Visit(_Unwind_Context* context, void* argument) {
  auto* search = static_cast<Search*>(argument);
  const uintptr_t address = _Unwind_GetIP(context);
  search->reached = search->reached || address == search->caller;
  if (search->reached) search->origin = OriginOf(address);
  return search->origin == Origin::kRuntime ? _URC_NO_REASON : _URC_END_OF_STACK;
}

bool IsLibrary(void* caller) {
  const auto address = reinterpret_cast<uintptr_t>(caller);
  Search search{address, OriginOf(address), false};
  if (search.origin == Origin::kRuntime) _Unwind_Backtrace(Visit, &search);
  return search.origin == Origin::kLibrary;
}

uintptr_t Disguised(const void* block) { return ~reinterpret_cast<uintptr_t>(block); }

void Forget(const void* block) {
  uintptr_t* const found = std::find(live, live_end, Disguised(block));
  if (found != live_end) *found = *--live_end;
}

void* Allocate(void* caller, void* old, size_t size) {
  // Both are looked up at once, because dlsym may call free, and free must not call dlsym.
  if (hidden_free == nullptr) {
    hidden_free = reinterpret_cast<decltype(hidden_free)>(dlsym(RTLD_NEXT, "free"));
    hidden_realloc = reinterpret_cast<decltype(hidden_realloc)>(dlsym(RTLD_NEXT, "realloc"));
  }
  const bool is_library = IsLibrary(caller);
  counted += is_library;
  if (is_library && first_failing != 0 && (all_fail ? counted >= first_failing : counted == first_failing)) {
    errno = ENOMEM;
    return nullptr;
  }
  Forget(old);
  void* const block = hidden_realloc(old, size);
  if (is_library) {
    if (live_end == std::end(live)) abort();
    *live_end++ = Disguised(block);
  }
  return block;
}

void* AllocateOrThrow(void* caller, size_t size) {
  if (void* const block = Allocate(caller, nullptr, size)) return block;
  throw std::bad_alloc();
}

char* Copy(void* caller, const char* text, size_t size) {
  auto* const copy = static_cast<char*>(Allocate(caller, nullptr, size + 1));
  if (copy != nullptr) *std::copy_n(text, size, copy) = '\0';
  return copy;
}

}  // namespace

#define CALLER __builtin_return_address(0)

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's names are reserved ones
extern "C" {
void* malloc(size_t size) noexcept { return Allocate(CALLER, nullptr, size); }
void* realloc(void* block, size_t size) noexcept { return Allocate(CALLER, block, size); }
void* calloc(size_t count, size_t size) noexcept {
  void* const block = Allocate(CALLER, nullptr, count * size);
  return block == nullptr ? nullptr : memset(block, 0, count * size);
}
void free(void* block) noexcept {
  Forget(block);
  if (block != nullptr) hidden_free(block);
}
// A sanitizer's strdup and strndup do not call malloc, so these replace them.
char* strdup(const char* text) noexcept { return Copy(CALLER, text, strlen(text)); }
char* strndup(const char* text, size_t size) noexcept { return Copy(CALLER, text, strnlen(text, size)); }
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

void* operator new(size_t size) { return AllocateOrThrow(CALLER, size); }
void* operator new[](size_t size) { return AllocateOrThrow(CALLER, size); }
void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept { return Allocate(CALLER, nullptr, size); }
void operator delete(void* block) noexcept { free(block); }
void operator delete[](void* block) noexcept { free(block); }
void operator delete(void* block, size_t /*size*/) noexcept { free(block); }
void operator delete[](void* block, size_t /*size*/) noexcept { free(block); }

namespace alloc_seam {

void Watch() {
  const auto add = [](dl_phdr_info* object, size_t /*size*/, void* /*user*/) {
    for (const char* name : {"/librubruf", "/libc.so", "/libstdc++.so", "/libboost_filesystem.so", "/libasan.so"}) {
      if (strstr(object->dlpi_name, name) == nullptr) continue;
      for (int i = 0; i < object->dlpi_phnum; ++i) {
        const auto& segment = object->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD || (segment.p_flags & PF_X) == 0) continue;
        const uintptr_t begin = object->dlpi_addr + segment.p_vaddr;
        const bool is_library = strcmp(name, "/librubruf") == 0;
        *ranges_end++ = {begin, begin + segment.p_memsz, is_library ? Origin::kLibrary : Origin::kRuntime};
      }
    }
    return 0;
  };
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
