// One input of kelviklog: standard input or a file.

#ifndef KELVIK_KELVIKLOG_INPUT_H_
#define KELVIK_KELVIKLOG_INPUT_H_

#include <cstddef>
#include <string>

namespace KelvikLog {

enum class eReadResult { kBytes, kQuiet, kEnd, kStopped, kFailed };

// For one thread.
class CInput {
 public:
  CInput() = default;
  CInput(const CInput&) = delete;
  CInput& operator=(const CInput&) = delete;
  ~CInput();

  // "-" is standard input. Returns false, with the reason, when the file cannot be opened.
  bool Open(const std::string& name, std::string& problem);

  // Waits for bytes and puts at most room of them at space; count is set to how many (kBytes), or
  // problem to the reason (kFailed). Ends with kStopped as soon as stopFd is readable, whatever
  // there is to read, and with kQuiet when nothing came for limitMs milliseconds (-1: no limit).
  eReadResult Read(int stopFd, int limitMs, char* space, std::size_t room, std::size_t& count,
                   std::string& problem);

 private:
  std::string m_Name;  // as messages name it
  int m_Fd = -1;
  bool m_IsOwned = false;
};

}  // namespace KelvikLog

#endif  // KELVIK_KELVIKLOG_INPUT_H_
