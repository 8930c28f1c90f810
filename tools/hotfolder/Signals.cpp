#include "Signals.h"

#include <pthread.h>

#include <cstdlib>

namespace hotfolder {

sigset_t g_signals;

void BlockStopSignals() {
  sigemptyset(&g_signals);
  sigaddset(&g_signals, SIGINT);
  sigaddset(&g_signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &g_signals, nullptr);
}

void EndBy(int signal) {
  ::signal(signal, SIG_DFL);
  sigset_t one;
  sigemptyset(&one);
  sigaddset(&one, signal);
  pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
  ::raise(signal);
  std::_Exit(128 + signal);
}

}  // namespace hotfolder
