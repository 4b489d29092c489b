/* A module that shows its state to an operator and takes a number from him.
 *
 *   cc -std=c99 callbacks.c -o callbacks $(pkg-config --cflags --libs kelvik) -pthread
 *   ./callbacks 8799 &
 *   kelvikctl show pump state          prints: pump state: 50 % since the start
 *   kelvikctl set pump power 80
 *   kelvikctl show pump state          prints: pump state: 80 % since an operator set it
 *   kill %1                            prints: stopped at 80 %
 *
 * Both functions run on the console's thread, so what they share with the program has a lock. */
#define _POSIX_C_SOURCE 200809L

#include <Kelvik.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

struct tagPump {
  pthread_mutex_t m_Lock;
  int m_Power; /* percent */
  int m_IsSet;
};

static int Show(int fd, const char* module, const char* title, void* context) {
  struct tagPump* pump = context;
  int power;
  int isSet;
  pthread_mutex_lock(&pump->m_Lock);
  power = pump->m_Power;
  isSet = pump->m_IsSet;
  pthread_mutex_unlock(&pump->m_Lock);
  /* fd is the terminal of whoever asks: write there, and leave it open. */
  return dprintf(fd, "%s %s: %d %% since %s\n", module, title, power,
                 isSet ? "an operator set it" : "the start") > 0
             ? 0
             : 1;
}

static int SetPower(int value, void* context) {
  struct tagPump* pump = context;
  if (value < 0 || value > 100) {
    KLog(eLogLevelError, "pump", "power", "%d is not 0 to 100\n", value);
    return 1;
  }
  pthread_mutex_lock(&pump->m_Lock);
  pump->m_Power = value;
  pump->m_IsSet = 1;
  pthread_mutex_unlock(&pump->m_Lock);
  return 0;
}

int main(int argc, char** argv) {
  static struct tagPump pump = {PTHREAD_MUTEX_INITIALIZER, 50, 0};
  const long port = argc == 2 ? strtol(argv[1], NULL, 10) : 0;
  sigset_t ends;
  int signal;
  if (port < 1 || port > 65535) {
    fprintf(stderr, "usage: callbacks PORT\n");
    return 64;
  }
  /* Blocked before a thread is made, and taken up by sigwait. */
  sigemptyset(&ends);
  sigaddset(&ends, SIGTERM);
  sigaddset(&ends, SIGINT);
  pthread_sigmask(SIG_BLOCK, &ends, NULL);
  Initialize();
  ModuleStateRegister("pump", "state", Show, &pump);
  ModuleSetParamRegister("pump", "power", SetPower, &pump);
  if (NetworkConsoleCreate(NULL, (unsigned int)port) != eResultSuccess) return 1;

  sigwait(&ends, &signal);
  /* Waits for a callback under way; after it, pump may go. */
  NetworkConsoleDestroy();
  printf("stopped at %d %%\n", pump.m_Power);
  return 0;
}
