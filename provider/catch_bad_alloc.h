// CatchBadAlloc: where memory exhaustion stops being an exception.
//
// No exception may cross into the host, and no other kind arises: everything else that fails is reported by results.

#ifndef RUBRUF_PROVIDER_CATCH_BAD_ALLOC_H_
#define RUBRUF_PROVIDER_CATCH_BAD_ALLOC_H_

#include <new>

#include "utils/log/log.h"

// The result of `call`, or `on_failure` after an error message when memory ran out in it.
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
