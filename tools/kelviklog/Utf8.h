// Where text may be cut without tearing a character apart.

#ifndef KELVIK_KELVIKLOG_UTF8_H_
#define KELVIK_KELVIKLOG_UTF8_H_

#include <cstddef>

namespace KelvikLog {

// The largest count of leading bytes, at most length, that does not end inside a UTF-8 sequence.
// Bytes that are no UTF-8 count as characters of their own. Returns length where that would leave
// nothing.
std::size_t WholeCharacters(const char* text, std::size_t length);

}  // namespace KelvikLog

#endif  // KELVIK_KELVIKLOG_UTF8_H_
