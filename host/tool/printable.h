// Texts of scripts and files, made safe for a terminal.

#ifndef RUBRUF_HOST_TOOL_PRINTABLE_H_
#define RUBRUF_HOST_TOOL_PRINTABLE_H_

#include <string>

namespace standin {

// The text in one line: control characters (U+0000 to U+001F, U+007F to U+009F) and bytes that are not UTF-8 as \xHH.
std::string Printable(const std::string& text);

bool IsUtf8(const std::string& text);

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_PRINTABLE_H_
