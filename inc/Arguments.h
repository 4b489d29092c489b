// A caller's variable arguments as a type of their own.
#ifndef KELVIK_ARGUMENTS_H_
#define KELVIK_ARGUMENTS_H_

#include <cstdarg>
#include <type_traits>
#include <utility>

namespace Kelvik {

// For decltype only: what a va_list parameter takes.
void TakesList(va_list list);

// Wraps a va_list for the overloads of COutput::Log that take one.
//
// Where va_list is a plain pointer (32-bit targets), a call such as Log(level, module, title, "%s",
// text) with a char* argument would otherwise select the va_list overload and read the text's bytes
// as arguments. There the wrapping is explicit: Log(level, module, title, format,
// tagArguments(list)). Elsewhere a va_list converts by itself. Portable callers always write it.
//
// Holds a copy of the list; the caller's own is left untouched and still ended by the caller.
struct tagArguments {
  // Copies the list.
  template <class T = va_list, std::enable_if_t<std::is_pointer<T>::value, int> = 0>
  explicit tagArguments(va_list list) {
    va_copy(m_List, list);
  }
  // As a template: a literal zero converts to any pointer, but deduced it is an int and no list.
  template <
      class T, class List = va_list, class = decltype(TakesList(std::declval<T>())),
      std::enable_if_t<!std::is_pointer<List>::value && !std::is_null_pointer<T>::value, int> = 0>
  tagArguments(T list) {  // NOLINT(google-explicit-constructor)
    va_copy(m_List, list);
  }
  ~tagArguments() { va_end(m_List); }
  tagArguments(const tagArguments&) = delete;
  tagArguments& operator=(const tagArguments&) = delete;

  mutable va_list m_List;  // consumed by the one call that it is passed to
};

}  // namespace Kelvik

#endif  // KELVIK_ARGUMENTS_H_
