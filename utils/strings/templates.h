// Expansion of printf templates, and comma-separated token lists.
//
// Every result is a new text, which the caller releases with free. Null means failure, after one message at error
// level. Inputs are neither changed nor released. All functions are reentrant.

#ifndef RUBRUF_UTILS_STRINGS_TEMPLATES_H_
#define RUBRUF_UTILS_STRINGS_TEMPLATES_H_

#include <stdarg.h>

#include "../export.h"

#ifdef __cplusplus
extern "C" {
#endif

// The expansion of a printf template, in an allocation of exactly its size.
TEV_EXPORT char* tev_expand_string_template(const char* format, ...) __attribute__((format(printf, 1, 2)));
// The same for a va_list, which stays usable for the caller.
TEV_EXPORT char* tev_vexpand_string_template(const char* format, va_list values) __attribute__((format(printf, 1, 0)));

// `list`, a comma and `token`; `token` alone when the list is null or empty. `token` must not be null.
TEV_EXPORT char* string_concat_comma_seperated_token(const char* list, const char* token);

#ifdef __cplusplus
}  // extern "C"
#endif

#endif  // RUBRUF_UTILS_STRINGS_TEMPLATES_H_
