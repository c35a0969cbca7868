// Strict conversions of option texts to numbers, booleans and GUIDs, and trimming in place.
//
// All functions are reentrant, allocate nothing and log nothing. A conversion returns true on success, and writes its
// value only then, so a default that the caller has set before survives a failure. string_to_guid is the one exception.

#ifndef RUBRUF_UTILS_STRINGS_CONVERSIONS_H_
#define RUBRUF_UTILS_STRINGS_CONVERSIONS_H_

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "../export.h"

#ifdef __cplusplus
extern "C" {
#endif

// Numbers, as the C library's strtol family reads them with base 0: leading white space, a sign, then hexadecimal after
// "0x", octal after "0", otherwise decimal. Other prefixes, such as "0b", fail, even if the C library knows them. Any
// text after the number fails, including blanks, and so do overflow, a null text and a null `value`. The unsigned
// functions accept a minus sign and negate, as strtoul does.
TEV_EXPORT bool string_to_long(const char* text, long* value);
TEV_EXPORT bool string_to_unsigned_long(const char* text, unsigned long* value);
TEV_EXPORT bool string_to_long_long(const char* text, long long* value);
TEV_EXPORT bool string_to_unsigned_long_long(const char* text, unsigned long long* value);

// As string_to_unsigned_long_long; a value beyond the type's range fails. `value` must not be null.
TEV_EXPORT bool string_to_sizet(const char* text, size_t* value);
TEV_EXPORT bool string_to_u64(const char* text, uint64_t* value);
TEV_EXPORT bool string_to_u32(const char* text, uint32_t* value);
TEV_EXPORT bool string_to_u16(const char* text, uint16_t* value);
TEV_EXPORT bool string_to_u8(const char* text, uint8_t* value);

// True for "1", "True", "true" and a null text; every other text is false.
TEV_EXPORT bool string_to_boolean(const char* text);
// "true" or "false"; a constant, never freed.
TEV_EXPORT const char* boolean_to_string(bool flag);

// Cuts white space (isspace) from both ends of a writable, non-null text. Returns the new start, which lies inside
// `text`.
TEV_EXPORT char* trim_white_space(char* text);

// 0 to 15 for a hexadecimal digit of either case, -1 for every other byte.
TEV_EXPORT int hex_char_to_int(char digit);

// Reads 32 hexadecimal digits, with dashes anywhere between or around them, as the 16 bytes of a GUID in text order.
// Fails on any other character, on any other number of digits, and on a null or empty text; `guid` may then hold the
// bytes before the fault.
TEV_EXPORT bool string_to_guid(const char* text, uint8_t* guid);

#ifdef __cplusplus
}  // extern "C"
#endif

#endif  // RUBRUF_UTILS_STRINGS_CONVERSIONS_H_
