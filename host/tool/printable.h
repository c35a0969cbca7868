// Makes texts of scripts and files safe to show in a terminal.

#ifndef RUBRUF_HOST_TOOL_PRINTABLE_H_
#define RUBRUF_HOST_TOOL_PRINTABLE_H_

#include <cstddef>
#include <string>

namespace standin {

// The text in one line: control characters (U+0000 to U+001F, U+007F to U+009F) and bytes that are not UTF-8 as \xHH.
std::string Printable(const std::string& text);

// Cuts each line to `columns`. An ellipsis ends each line that was cut.
std::string Shortened(const std::string& lines, size_t columns);

bool IsUtf8(const std::string& text);

}  // namespace standin

#endif  // RUBRUF_HOST_TOOL_PRINTABLE_H_
