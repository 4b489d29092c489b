// What this process prints on its standard output, call by call. For children (ChildProcess.h): the
// file behind standard output is exchanged and stays so until the process ends.

#ifndef KELVIK_PRINTEDTEXT_H_
#define KELVIK_PRINTEDTEXT_H_

#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace Kelvik {

class CPrintedText {
 public:
  // From here on standard output goes to an unnamed file. Ends the process when that fails.
  CPrintedText() {
    std::string path = "/tmp/kelvik-printed-XXXXXX";
    std::fflush(stdout);
    m_Fd = mkstemp(path.data());
    if (m_Fd == -1 || unlink(path.c_str()) != 0 || dup2(m_Fd, STDOUT_FILENO) == -1) {
      std::perror(path.c_str());
      std::abort();
    }
  }
  CPrintedText(const CPrintedText&) = delete;
  CPrintedText& operator=(const CPrintedText&) = delete;
  ~CPrintedText() { close(m_Fd); }

  // What was printed since the last call.
  std::string Take() {
    std::fflush(stdout);
    std::string text;
    char piece[4096];
    ssize_t length;
    while ((length = pread(m_Fd, piece, sizeof(piece), static_cast<off_t>(text.size()))) > 0) {
      text.append(piece, static_cast<std::size_t>(length));
    }
    if (ftruncate(m_Fd, 0) != 0 || lseek(m_Fd, 0, SEEK_SET) != 0) std::abort();
    return text;
  }

 private:
  int m_Fd;
};

}  // namespace Kelvik

#endif  // KELVIK_PRINTEDTEXT_H_
