/* A program with functions of its own that bear all nineteen plain names, as other signatures or
   not, uses the library through the prefixed family. Linked with the shared library, it must never
   be called by it; linked with the static one, it must not meet a second definition. */

#define _POSIX_C_SOURCE 200809L
#define KELVIK_NO_PLAIN_NAMES

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <time.h>

#include "Checks.h"
#include "Kelvik.h"

static int s_OwnCalls;

#define OWN_NAME(name)     \
  int name(int);           \
  int name(int argument) { \
    s_OwnCalls++;          \
    return argument + 42;  \
  }

OWN_NAME(KLog)
OWN_NAME(KLogV1)
OWN_NAME(KLogs)
OWN_NAME(KLogsV1)
OWN_NAME(ModuleStateRegister)
OWN_NAME(ModuleSetParamRegister)
OWN_NAME(ModuleStateUnregister)
OWN_NAME(ModuleSetParamUnregister)
OWN_NAME(SetAttributeByModule)
OWN_NAME(SetAttribute)
OWN_NAME(registerModule)
OWN_NAME(UnregisterModule)
OWN_NAME(Initialize)
OWN_NAME(SetConfigFilePath)
OWN_NAME(SetLogFilePath)
OWN_NAME(WriteBufferContent2File)
OWN_NAME(ClearFileInfo)
OWN_NAME(NetworkConsoleCreate)
OWN_NAME(NetworkConsoleDestroy)

static int s_Shown;

static int Show(int fd, const char* module, const char* title, void* context) {
  (void)fd;
  (void)module;
  (void)title;
  (void)context;
  __atomic_add_fetch(&s_Shown, 1, __ATOMIC_SEQ_CST);
  return 0;
}

static int s_Taken;

static int Take(int value, void* context) {
  (void)context;
  __atomic_store_n(&s_Taken, value, __ATOMIC_SEQ_CST);
  return 0;
}

static void OpenSocket(int* fd, struct sockaddr_in* address) {
  memset(address, 0, sizeof(*address));
  address->sin_family = AF_INET;
  address->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  *fd = socket(AF_INET, SOCK_DGRAM, 0);
  if (*fd == -1) {
    perror("socket");
    exit(2);
  }
}

static unsigned int FreePort(void) {
  struct sockaddr_in address;
  socklen_t length = sizeof(address);
  int fd;
  OpenSocket(&fd, &address);
  if (bind(fd, (struct sockaddr*)&address, sizeof(address)) != 0 ||
      getsockname(fd, (struct sockaddr*)&address, &length) != 0) {
    perror("free port");
    exit(2);
  }
  close(fd);
  return ntohs(address.sin_port);
}

/* Sends one console command. */
static void Command(unsigned int port, const char* text) {
  unsigned char datagram[256];
  const size_t length = strlen(text);
  struct sockaddr_in address;
  int fd;
  OpenSocket(&fd, &address);
  address.sin_port = htons((unsigned short)port);
  datagram[0] = 0xf9;
  datagram[1] = 0x51;
  datagram[2] = (unsigned char)(length >> 8);
  datagram[3] = (unsigned char)(length & 0xff);
  memcpy(datagram + 4, text, length);
  if (sendto(fd, datagram, length + 4, 0, (struct sockaddr*)&address, sizeof(address)) < 0) {
    perror("sendto");
    exit(2);
  }
  close(fd);
}

/* Waits up to 10 s for the counter to reach the value. */
static int Reaches(const int* counter, int value) {
  const struct timespec pause = {0, 10 * 1000 * 1000};
  int i;
  for (i = 0; i < 1000; i++) {
    if (__atomic_load_n(counter, __ATOMIC_SEQ_CST) == value) return 1;
    nanosleep(&pause, NULL);
  }
  return 0;
}

/* The console's commands go the road of the attribute functions. */
static void DriveConsole(const char* logPath) {
  char command[128];
  const unsigned int port = FreePort();
  snprintf(command, sizeof(command), "-logsize 2048 -logcount 5 -logpath %s -focus net", logPath);
  CHECK_INT(0, Kelvik_NetworkConsoleCreate(NULL, port));
  Command(port, "-time 0");
  Command(port, "-leveldbg 1 net");
  Command(port, "-leveldbg 1");
  Command(port, command);
  Command(port, "-show /dev/null net state");
  CHECK_INT(1, Reaches(&s_Shown, 1));
  Command(port, "-set net level 7");
  CHECK_INT(1, Reaches(&s_Taken, 7));
  CHECK_INT(0, Kelvik_NetworkConsoleDestroy());
}

int main(void) {
  char folder[] = "/tmp/kelvik-own-XXXXXX";
  char path[64];
  char expected[128];
  const int on = 1;
  const int off = 0;
  if (mkdtemp(folder) == NULL) {
    perror("folder");
    return 2;
  }
  CapturePrinted();
  snprintf(path, sizeof(path), "%s/kelvik.ini", folder);
  CHECK_INT(0, Kelvik_SetConfigFilePath(path));
  snprintf(path, sizeof(path), "%s/", folder);
  CHECK_INT(0, Kelvik_SetLogFilePath(path));
  snprintf(expected, sizeof(expected), "m_Attribute.m_LogPath = %s\n", path);
  CHECK_PRINTED(expected);
  CHECK_INT(0, Kelvik_Initialize());
  CHECK_INT(0, Kelvik_RegisterModule("net", "V1"));
  CHECK_INT(0, Kelvik_ModuleStateRegister("net", "state", Show, NULL));
  CHECK_INT(0, Kelvik_ModuleSetParamRegister("net", "level", Take, NULL));
  CHECK_INT(0, Kelvik_KLogs(eLogLevelError, "net", "rx", "text\n", 5));
  CHECK_INT(0, Kelvik_KLogsV1(eLogLevelError, "net", "rx", "a.c", "main", 1, "text\n", 5));
  CHECK_INT(0, Kelvik_SetAttribute(eAttributeOutput, eOutputFile, &on, sizeof(on)));
  CHECK_INT(0, Kelvik_KLog(eLogLevelError, "net", "rx", "%s\n", "text"));
  CHECK_INT(0, Kelvik_KLogV1(eLogLevelError, "net", "rx", "a.c", "main", 1, "%s\n", "text"));
  CHECK_INT(3, Kelvik_KLog((enum eLogLevel)9, "net", "rx", "text\n"));
  CHECK_INT(3, Kelvik_SetAttribute(9, 9, &on, sizeof(on)));
  CHECK_INT(3, Kelvik_SetAttributeByModule(eAttributeLevel, 9, &on, sizeof(on), "net"));
  CHECK_INT(0, Kelvik_WriteBufferContent2File());
  DriveConsole(path);
  CHECK_INT(0, Kelvik_SetAttribute(eAttributeOutput, eOutputFile, &off, sizeof(off)));
  CHECK_INT(0, Kelvik_ClearFileInfo());
  CHECK_INT(0, Kelvik_ModuleStateUnregister("net", "state"));
  CHECK_INT(0, Kelvik_ModuleSetParamUnregister("net", "level"));
  CHECK_INT(0, Kelvik_UnregisterModule("net"));
  CHECK_INT(0, s_OwnCalls);

  /* The names are the program's in both directions. */
  CHECK_INT(43, Initialize(1));
  CHECK_INT(44, SetAttribute(2));
  CHECK_INT(2, s_OwnCalls);

  snprintf(path, sizeof(path), "%s/kelvik.ini", folder);
  CHECK_INT(0, unlink(path));
  CHECK_INT(0, rmdir(folder));
  return Finish("OwnNames");
}
