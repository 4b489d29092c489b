// The library and the loggers beside it, each doing the same work: date and time with milliseconds,
// module, title, and a line with a number, a text and a number. As near as each of them can: glog
// has a prefix of its own, with microseconds, thread id and source place.
//
// A logger is a class without objects: Open(folder) once, then Record(i) from any thread. A peer
// that was not found is not there; KELVIK_PEER_<NAME> tells.

#ifndef KELVIK_BENCH_LOGGERS_H_
#define KELVIK_BENCH_LOGGERS_H_

#include <pthread.h>
#include <sys/time.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "Kelvik.h"
#include "KelvikExtra.h"

#ifdef KELVIK_PEER_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#endif
#ifdef KELVIK_PEER_GLOG
#include <glog/logging.h>
#endif
#ifdef KELVIK_PEER_LOG4CPLUS
#include <log4cplus/fileappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>
#endif

namespace Kelvik {

constexpr const char* kSender = "192.168.1.17";
constexpr unsigned kLength = 1400;

inline void SwitchKelvik(int kind, int option, char isOn) {
  ::SetAttribute(kind, option, &isOn, 1);
}
inline void SetKelvikNumber(int option, int32_t value) {
  ::SetAttribute(eAttributeOther, option, &value, sizeof(value));
}

struct CKelvikLogger {
  // No sink: records are made and go nowhere.
  static void OpenNothing() {
    SwitchKelvik(eAttributeOutput, eOutputTerminal, 0);
    SwitchKelvik(eAttributeLevel, eLogLevelInfo, 1);
  }
  // Rotation by size; a file buffer of 32 KiB, the default. Nothing is lost to speed, so that the
  // work is everyone's.
  static void Open(const std::string& folder, int fileKib = 1 << 20, int files = 10) {
    OpenNothing();
    const std::string path = folder + "/";
    ::SetAttribute(eAttributeOther, eOtherLogPath, path.c_str(), static_cast<int>(path.size()));
    SetKelvikNumber(eOtherLogMaxSize, fileKib);
    SetKelvikNumber(eOtherLogMaxCount, files);
    KelvikExtra_SetOverflow(eOverflowWrite);
    SwitchKelvik(eAttributeOutput, eOutputFile, 1);
    ::Initialize();
  }
  static void OpenTerminal() {
    OpenNothing();
    SwitchKelvik(eAttributeOutput, eOutputTerminal, 1);
  }
  // Names of 3 to 8 letters, the records' own module the last of them.
  static void RegisterModules(int count) {
    for (int i = 0; i < count - 1; ++i) {
      std::string name;
      for (int k = 0, rest = i * 7919 + 17; k < 3 + i % 6; ++k, rest = rest / 3 + 101 * i) {
        name += static_cast<char>('a' + rest % 13);  // no 'n', so never a part of "net"
      }
      ::registerModule((name + static_cast<char>('o' + i % 12)).substr(0, 8).c_str(), "V1.0");
    }
    if (count > 0) ::registerModule("net", "V1.0");
  }
  static void Record(unsigned i) {
    ::KLog(eLogLevelInfo, "net", "rx", "packet %d from %s len %u\n", static_cast<int>(i), kSender,
           kLength);
  }
  static void RecordBelowLevel(unsigned i) {
    ::KLog(eLogLevelDebug, "net", "rx", "packet %d from %s len %u\n", static_cast<int>(i), kSender,
           kLength);
  }
  static void Close() { KelvikExtra_Flush(600000, 0); }
};

// What no logger of this kind can do without: the time of day, a recursive lock that is free, and
// the copies of a record of this length into a buffer and of the buffer to the writer.
struct CFloor {
  static void Open() {
    pthread_mutexattr_t recursive;
    pthread_mutexattr_init(&recursive);
    pthread_mutexattr_settype(&recursive, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&s_Lock, &recursive);
    pthread_mutexattr_destroy(&recursive);
  }
  static void Record(unsigned i) {
    struct timeval now;
    gettimeofday(&now, nullptr);
    char record[kBytes];
    std::memcpy(record, kText, kBytes);
    record[22] = static_cast<char>('0' + now.tv_usec % 8);
    record[40] = static_cast<char>('0' + i % 8);
    __asm__ volatile("" : : "r"(record) : "memory");
    pthread_mutex_lock(&s_Lock);
    if (s_Length + kBytes > sizeof(s_Front)) {
      std::memcpy(s_Back, s_Front, s_Length);
      s_Length = 0;
    }
    std::memcpy(s_Front + s_Length, record, kBytes);
    s_Length += kBytes;
    pthread_mutex_unlock(&s_Lock);
  }

 private:
  static constexpr char kText[] =
      "2026-01-31 09:26:53.589 [net][rx] packet 1234567 from 192.168.1.17 len 1400\n";
  static constexpr size_t kBytes = sizeof(kText) - 1;
  static inline pthread_mutex_t s_Lock;
  static inline size_t s_Length = 0;
  static inline char s_Front[32768];
  static inline char s_Back[32768];
};

#ifdef KELVIK_PEER_SPDLOG
struct CSpdlogLogger {
  static void Open(std::shared_ptr<spdlog::logger> logger) {
    logger->set_pattern("%Y-%m-%d %H:%M:%S.%e [%n][rx] %v");
    s_Kept = std::move(logger);
  }
  static void Open(const std::string& folder) {
    Open(spdlog::basic_logger_mt("net", folder + "/spdlog.log"));
  }
  static void OpenRotating(const std::string& folder, size_t fileKib, size_t files) {
    Open(spdlog::rotating_logger_mt("net", folder + "/spdlog.log", fileKib << 10, files));
  }
  static void OpenTerminal() { Open(spdlog::stdout_logger_mt("net")); }
  static void Record(unsigned i) {
    s_Kept->info("packet {} from {} len {}", static_cast<int>(i), kSender, kLength);
  }
  static void Close() {
    s_Kept->flush();
    s_Kept.reset();
    spdlog::drop_all();
  }

 private:
  static inline std::shared_ptr<spdlog::logger> s_Kept;
};
#endif

#ifdef KELVIK_PEER_GLOG
struct CGlogLogger {
  static void Open(const std::string& folder) {
    FLAGS_log_dir = folder;
    FLAGS_logtostderr = false;
    google::InitGoogleLogging("bench");
  }
  static void Record(unsigned i) {
    LOG(INFO) << "[net][rx] packet " << static_cast<int>(i) << " from " << kSender << " len "
              << kLength;
  }
};
#endif

#ifdef KELVIK_PEER_LOG4CPLUS
struct CLog4cplusLogger {
  static void Open(const std::string& folder) {
    static log4cplus::Initializer initializer;
    const bool isFlushedAtOnce = false;
    log4cplus::SharedAppenderPtr file(new log4cplus::FileAppender(
        folder + "/log4cplus.log", std::ios_base::trunc, isFlushedAtOnce));
    file->setLayout(std::unique_ptr<log4cplus::Layout>(
        new log4cplus::PatternLayout("%D{%Y-%m-%d %H:%M:%S.%q} [%c][rx] %m%n")));
    Logger().addAppender(file);
    Logger().setLogLevel(log4cplus::INFO_LOG_LEVEL);
  }
  static void Record(unsigned i) {
    LOG4CPLUS_INFO_FMT(Logger(), "packet %d from %s len %u", static_cast<int>(i), kSender, kLength);
  }

 private:
  static log4cplus::Logger& Logger() {
    static log4cplus::Logger logger = log4cplus::Logger::getInstance("net");
    return logger;
  }
};
#endif

}  // namespace Kelvik

#endif  // KELVIK_BENCH_LOGGERS_H_
