// One input of kelviklog: standard input or a file.

#ifndef KELVIK_KELVIKLOG_INPUT_H_
#define KELVIK_KELVIKLOG_INPUT_H_

#include <cstddef>
#include <cstdint>
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

  // Bytes that a regular file still has to give; -1 for anything else.
  int64_t Size() const;

  // Waits for bytes and puts at most room of them at space; count is set to how many (kBytes), or
  // problem to the reason (kFailed). Ends with kStopped as soon as stopFd is readable, whatever
  // there is to read, and with kQuiet when nothing came for limitMs milliseconds (-1: no limit).
  eReadResult Read(int stopFd, int limitMs, char* space, std::size_t room, std::size_t& count,
                   std::string& problem);

  // As messages name it. After Open.
  const std::string& Name() const { return m_Name; }

 private:
  std::string m_Name;
  int m_Fd = -1;
  bool m_IsOwned = false;
};

}  // namespace KelvikLog

#endif  // KELVIK_KELVIKLOG_INPUT_H_
