#include "ProcessList.h"

#include <dirent.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>

#include "SocketTable.h"

namespace KelvikCtl {

namespace {

std::vector<std::string> ListFolder(const std::string& path) {
  std::vector<std::string> names;
  DIR* const folder = opendir(path.c_str());
  if (folder == nullptr) return names;
  while (const dirent* const entry = readdir(folder))
    names.emplace_back(entry->d_name);
  closedir(folder);
  return names;
}

std::vector<pid_t> ListProcesses() {
  std::vector<pid_t> pids;
  for (const std::string& name : ListFolder("/proc")) {
    if (name.find_first_not_of("0123456789") == std::string::npos) {
      pids.push_back(static_cast<pid_t>(std::strtol(name.c_str(), nullptr, 10)));
    }
  }
  std::sort(pids.begin(), pids.end());
  return pids;
}

// The inodes of the sockets that the process has open.
std::set<uint64_t> SocketInodes(const std::string& process) {
  std::set<uint64_t> inodes;
  const std::string folder = process + "/fd";
  for (const std::string& name : ListFolder(folder)) {
    char target[64] = {};
    std::string link = folder;
    link.append("/").append(name);
    uint64_t inode = 0;
    if (readlink(link.c_str(), target, sizeof(target) - 1) > 0 &&
        // Nineteen digits fit. NOLINTNEXTLINE(cert-err34-c)
        std::sscanf(target, "socket:[%19" SCNu64 "]", &inode) == 1) {
      inodes.insert(inode);
    }
  }
  return inodes;
}

bool HasLibrary(const std::string& process) {
  return ReadSmallFile(process + "/maps").find("/libkelvik.so") != std::string::npos;
}

std::string CommandOf(const std::string& process) {
  std::string command = ReadSmallFile(process + "/cmdline");
  std::replace(command.begin(), command.end(), '\0', ' ');
  const std::size_t last = command.find_last_not_of(' ');
  command.erase(last == std::string::npos ? 0 : last + 1);
  return command;
}

}  // namespace

std::vector<tagConsoleProcess> FindConsoleProcesses() {
  std::map<uint64_t, tagUdpSocket> sockets;
  for (const tagUdpSocket& socket : ReadUdpTable()) {
    if (IsLoopback(socket) && !socket.m_IsConnected) sockets.emplace(socket.m_Inode, socket);
  }
  std::vector<tagConsoleProcess> processes;
  for (const pid_t pid : ListProcesses()) {
    const std::string process = "/proc/" + std::to_string(pid);
    for (const uint64_t inode : SocketInodes(process)) {
      const auto found = sockets.find(inode);
      if (found != sockets.end() && HasLibrary(process)) {
        processes.push_back({pid, found->second.m_User, found->second.m_Port, CommandOf(process)});
      }
    }
  }
  return processes;
}

}  // namespace KelvikCtl
