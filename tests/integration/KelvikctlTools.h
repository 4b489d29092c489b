// Runs kelvikctl, and stands in for a process that it talks to, for its tests.

#ifndef KELVIK_KELVIKCTLTOOLS_H_
#define KELVIK_KELVIKCTLTOOLS_H_

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ChildProcess.h"
#include "ConsoleClient.h"

namespace Kelvik {

using Strings = std::vector<std::string>;

inline Strings CtlArgs(uint16_t port, const Strings& args) {
  Strings all = {"--port", std::to_string(port), "--timeout", "20"};
  all.insert(all.end(), args.begin(), args.end());
  return all;
}

inline tagChildResult RunCtl(uint16_t port, const Strings& args, int limitMs = 25000) {
  tagChildOptions options;
  options.m_LimitMs = limitMs;
  return RunProgram(KELVIK_KELVIKCTL, CtlArgs(port, args), options);
}

inline Strings SplitWords(const std::string& text) {
  std::istringstream stream(text);
  Strings words;
  std::string word;
  while (stream >> word)
    words.push_back(word);
  return words;
}

inline bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// A plain socket that notes what arrives and answers a display as it is told. It shares nothing
// with the console's own code.
class CFakeConsole {
 public:
  CFakeConsole() : m_Fd(BindPlainSocket(0)), m_Port(PortOf(m_Fd)) {
    m_Answers["attribute"] = Status("debug:false");
    m_Answers["module"] = "==========Register Module==========\n[disk]\n[net]\n";
    m_Answers["cmd"] = "==========Cmd Module==========\nmoudle:[net], title:[counters]\n";
    m_Thread = std::thread([this] { Run(); });
  }
  CFakeConsole(const CFakeConsole&) = delete;
  CFakeConsole& operator=(const CFakeConsole&) = delete;
  ~CFakeConsole() {
    m_IsEnding = true;
    m_Thread.join();
    close(m_Fd);
  }

  uint16_t Port() const { return m_Port; }

  // The status display with one switch as told ("debug:true"), and a path.
  static std::string Status(const std::string& change, const std::string& path = "/tmp/") {
    std::string text =
        "[Attribute] module:Kelvik title:attribute.\n"
        "[Output mode] printf:true system:false file:false datetime:true tid:false.\n"
        "[Log level] debug:false info:false warning:false error:true fatal:true.\n"
        "[Log file] path:" +
        path + ".\n";
    const std::string name = change.substr(0, change.find(':') + 1);
    const std::size_t at = text.find(" " + name) + 1;
    text.replace(at, text.find_first_of(" .", at) - at, change);
    return text;
  }

  // What the display with this title prints from now on.
  void Answer(const std::string& title, const std::string& text) {
    const std::lock_guard<std::mutex> guard(m_Lock);
    m_Answers[title] = text;
  }
  // From the datagram with this text on a display prints something else.
  void AnswerAfter(const std::string& command, const std::string& title, const std::string& text) {
    const std::lock_guard<std::mutex> guard(m_Lock);
    m_Later[command] = {title, text};
  }
  // No display is answered any more.
  void FallSilent() { m_IsSilent = true; }

  // The datagrams that came, the path of a terminal as PATH.
  Strings Datagrams() {
    const std::lock_guard<std::mutex> guard(m_Lock);
    return m_Datagrams;
  }

 private:
  void Run() {
    while (!m_IsEnding) {
      pollfd waiting = {m_Fd, POLLIN, 0};
      if (poll(&waiting, 1, 20) != 1) continue;
      char bytes[4096];
      const ssize_t size = recv(m_Fd, bytes, sizeof(bytes), 0);
      if (size > 0) Take(std::string(bytes, static_cast<std::size_t>(size)));
    }
  }

  void Take(std::string datagram) {
    const std::lock_guard<std::mutex> guard(m_Lock);
    const Strings words = SplitWords(datagram.substr(std::min<std::size_t>(4, datagram.size())));
    if (words.size() == 4 && words[0] == "-show" && datagram == Frame(datagram.substr(4))) {
      m_Datagrams.push_back("show PATH " + words[2] + " " + words[3]);
      if (!m_IsSilent) Print(words[1], m_Answers[words[3]]);
      return;
    }
    m_Datagrams.push_back(datagram);
    const auto later = m_Later.find(datagram.substr(4));
    if (later != m_Later.end()) m_Answers[later->second.first] = later->second.second;
  }

  // The other side may go away before all is written.
  static void Print(const std::string& path, const std::string& text) {
    const int fd = open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    std::size_t done = 0;
    while (fd != -1 && done < text.size()) {
      const ssize_t size = write(fd, text.data() + done, text.size() - done);
      if (size <= 0) break;
      done += static_cast<std::size_t>(size);
    }
    if (fd != -1) close(fd);
  }

  const int m_Fd;
  const uint16_t m_Port;
  std::atomic<bool> m_IsEnding{false};
  std::atomic<bool> m_IsSilent{false};
  std::mutex m_Lock;
  std::map<std::string, std::string> m_Answers;  // by title
  std::map<std::string, std::pair<std::string, std::string>> m_Later;
  Strings m_Datagrams;
  std::thread m_Thread;
};

}  // namespace Kelvik

#endif  // KELVIK_KELVIKCTLTOOLS_H_
