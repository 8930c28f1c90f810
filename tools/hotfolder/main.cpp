// vantu-hotfolder: watches a directory and prints each complete file that arrives in it.
//
// Built on libvantu's public classes only: a VHotfolder finds and delivers the files, a VLog
// records deliveries and the commands' results (with --log; the hot folder's trace too at level
// information, which --verbose reads to say why a file still waits or a link is skipped).
//
// With --claim, each instance moves a delivered file into a folder of its own before handling
// it, so that several instances share one watched folder and each file is handled once.
//
// Deletes and claims act relative to a descriptor of the watched folder and never follow a link
// on their way: nothing outside the folder is deleted or moved, whatever links others plant.
//
// Threads: the scans (the hot folder's timer thread, or one thread for --once) only queue what
// they deliver; the main thread takes the queue one entry at a time and runs the commands; a
// thread of its own takes SIGINT and SIGTERM, which every other thread blocks.
//
// The parts: Options (the command line), Session (the queue between the threads, the stop and
// the running command), Signals, Command (--exec and the signal thread), Log, Folder (the
// watched folder, deletes), Claim (--claim), Output (the records), Delivery (one item's handling).
#include <pthread.h>
#include <signal.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <thread>

#include <vantu/VHotfolder.h>
#include <vantu/VLog.h>
#include <vantu/VPath.h>

#include "Claim.h"
#include "Command.h"
#include "Delivery.h"
#include "Folder.h"
#include "Log.h"
#include "Options.h"
#include "Session.h"
#include "Signals.h"

using namespace hotfolder;

int main(int argc, char** argv) {
  // Blocked here, before any thread starts, so that only the signal thread takes them.
  BlockStopSignals();

  Options options;
  if (!Parse(argc, argv, options)) return 2;
  if (!UseWatched(options)) return 2;
  std::string privateLog;
  std::unique_ptr<VLog> log;
  if (!OpenLog(options, log, privateLog)) return 2;

  if (!options.claim.empty() && !OpenClaim(options)) return 2;

  std::thread signalThread(WatchSignals, g_signals);
  VHotfolder folder;
  folder.SetPath(VPath::FromFileSystem(options.directory));
  folder.SetTimeMilliseconds(options.period);
  folder.SetRecursive(options.recursive);
  folder.SetGroupFolders(options.groupFolders);
  folder.SetCallback(OnDelivery);
  folder.Enable(true);
  folder.SetWakeOnChange(!options.noWake);
  folder.SetFollowLinks(options.followLinks);
  folder.SetDotRuleBelowFolderOnly(true);  // a watched folder below a dot-directory works
  std::thread scanner;
  if (options.once) {
    scanner = std::thread([&folder] {
      folder.CheckFolderChanges();
      g_session.Finish();
    });
  } else {
    folder.Start();
    std::fprintf(stderr, "vantu-hotfolder: watching %s (Ctrl-C to stop)\n",
                 options.directory.c_str());
  }
  Item item;
  while (g_session.Take(item)) {
    item.delivery ? Handle(options, folder, item) : Note(options, item.text);
  }
  folder.Stop();  // ends a scan in progress
  if (scanner.joinable()) scanner.join();

  VLog::SetCurrent(nullptr);
  log.reset();  // every queued line written
  std::error_code error;
  if (!privateLog.empty()) std::filesystem::remove_all(privateLog, error);
  pthread_kill(signalThread.native_handle(), SIGTERM);
  signalThread.join();
  if (const int signal = g_session.StopSignal()) EndBy(signal);
  return g_failed ? 1 : 0;
}
