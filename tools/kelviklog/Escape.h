// Text that cannot drive a terminal: control bytes shown as "\xNN".

#ifndef KELVIK_KELVIKLOG_ESCAPE_H_
#define KELVIK_KELVIKLOG_ESCAPE_H_

#include <cstddef>
#include <string>

namespace KelvikLog {

// True for a text that holds a control byte which AppendEscaped would replace.
bool NeedsEscape(const char* text, std::size_t length);

// Appends the text with its control bytes as "\xNN" (upper case): 0x00 to 0x1F but for tab, 0x7F,
// and the C1 controls, which some terminals obey like an escape sequence: U+0080 to U+009F in
// UTF-8, both bytes, and 0x80 to 0x9F wherever they are no part of a well-formed UTF-8 character.
// Everything else stays, other bytes that are no UTF-8 included; so does a backslash, so what is
// shown cannot be turned back. The result needs no escaping.
void AppendEscaped(std::string& out, const char* text, std::size_t length);

}  // namespace KelvikLog

#endif  // KELVIK_KELVIKLOG_ESCAPE_H_
