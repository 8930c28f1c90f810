// The watched folder, and the walk from its descriptor to a delivered entry: deletes and claims
// act relative to it, so a link planted or swapped in there never leads them out of it.
#ifndef VANTU_TOOLS_HOTFOLDER_FOLDER_H
#define VANTU_TOOLS_HOTFOLDER_FOLDER_H

#include <string>

#include <vantu/VHotfolder.h>

#include "Options.h"
#include "Output.h"

namespace hotfolder {

// The watched folder, opened at start: deletes and claims act relative to its descriptor, so a
// link planted or swapped in there never leads them out of it. Its identity tells when the folder
// at its path was replaced (deleted and made again, or renamed away).
struct WatchedFolder {
  std::string path;
  int fd = -1;
};
extern WatchedFolder g_watched;

// Makes DIRECTORY if missing, resolves it in `options` and opens it; false after saying why.
bool UseWatched(Options& options);

// Opens the watched folder (again); false after saying why.
bool OpenWatched(const std::string& path);

// Whether `fd` is still the folder at `path`.
bool SameFolder(const std::string& path, int fd);

// An error of Parent, or an errno value, in words.
std::string Describe(int error);

// The folder that holds a delivered entry, opened from the watched folder's descriptor one
// sub-folder at a time without following links, and the entry's name in it; error is 0 or an
// errno value.
class Parent {
 public:
  explicit Parent(std::string path);
  Parent(const Parent&) = delete;
  Parent& operator=(const Parent&) = delete;
  ~Parent() { Close(); }

  int fd = g_watched.fd;
  std::string name;
  int error = 0;

 private:
  void Close();
  bool owned_ = false;
};

// Whether the watched folder or the claim folder was replaced since it was opened (deleted and
// made again, or renamed away): then it is opened again at its path (the claim folder made again
// if missing), and true. One that cannot be opened again stops the tool with status 1, so that a
// supervisor restarts it. While no folder is at the watched path there is nothing to open.
bool Reopened(const Options& options);

// Deletes a delivered entry (a link itself, never what it points to; a folder with its content),
// or a claimed file in the claim folder. A delivered entry, once gone, leaves the hot folder's
// list, so that a new file of the same name is delivered; one that cannot be deleted stays
// listed, so that its command does not run again at every scan.
void Delete(const Options& options, VHotfolder& folder, const std::string& path, bool claimed,
            Result& result);

}  // namespace hotfolder

#endif  // VANTU_TOOLS_HOTFOLDER_FOLDER_H
