// CatchBadAlloc: turns exhausted memory from an exception into a result.
//
// No exception may reach the host. std::bad_alloc is the only one that arises, because every other failure is a result.

#ifndef RUBRUF_PROVIDER_CATCH_BAD_ALLOC_H_
#define RUBRUF_PROVIDER_CATCH_BAD_ALLOC_H_

#include <new>

#include "utils/log/log.h"

// Returns the result of `call`; `on_failure`, after an error message, if memory ran out during the call.
template <typename Result, typename Call>
Result CatchBadAlloc(Result on_failure, Call call) {
  try {
    return call();
  } catch (const std::bad_alloc&) {
    TEV_LOG(TEV_LOG_ERROR, "[python provider] memory allocation error");
    return on_failure;
  }
}

#endif  // RUBRUF_PROVIDER_CATCH_BAD_ALLOC_H_
