// A pseudo-terminal that a process is asked to print on.

#ifndef KELVIK_KELVIKCTL_TERMINAL_H_
#define KELVIK_KELVIKCTL_TERMINAL_H_

#include <cstddef>
#include <string>

namespace KelvikCtl {

// Raw: what is written to the device arrives as it is. This side never opens the device, so that
// its end shows when the process has closed it.
class CTerminal {
 public:
  // Throws CFailure when the system has none.
  CTerminal();
  CTerminal(const CTerminal&) = delete;
  CTerminal& operator=(const CTerminal&) = delete;
  ~CTerminal();

  enum class eRead { kBytes, kNothingYet, kClosed };
  // Never waits. kClosed: the device was open and everybody has closed it again, and all that was
  // written has been read.
  eRead Read(char* bytes, std::size_t room, std::size_t& size);

  int Descriptor() const { return m_Master; }  // readable when Read has something to say
  const std::string& Path() const { return m_Path; }

 private:
  int m_Master;
  std::string m_Path;
};

}  // namespace KelvikCtl

#endif  // KELVIK_KELVIKCTL_TERMINAL_H_
