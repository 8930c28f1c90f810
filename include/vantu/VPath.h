// VPath: a file-system path held as a VString.
//
// A VPath is a VString (same data, same table of virtual operations except the destructor)
// whose path operations parse the text with Poco::Path in the native style ("/" separators,
// no device part on POSIX), do one thing and turn the result back into text in the path's own
// encoding. The bytes that reach the file system are the path's UTF-8 bytes; text in UTF8, or
// in the system code page on a UTF-8 system, is used byte for byte, so Linux names that are not
// valid UTF-8 or not in NFC stay reachable. Paths that come from the file system (the results
// of the path operations, directory entries, ResolveShortcut, GetAppDataPath, GetTempHome) keep
// its bytes exactly, without normalisation: in the path's encoding where that encoding holds
// them, else as UTF8 text (a UTF16 path's entry whose name is not valid UTF-8, for instance).
//
// Append(const VPath&) hides VString's Append overloads on a VPath: path.Append("x") appends a
// path component; the byte append stays reachable through a VString&.
//
// Standard paths: VPath::FromFilesystemPath(std::filesystem::path) and the inherited
// ToFilesystemPath carry the file system's bytes both ways unchanged (see VString.h).
//
// Errors: text that Poco::Path cannot parse throws Poco::PathSyntaxException (from
// <Poco/Exception.h>), leaving the path unchanged; ConvertToStyle throws
// VantuInvalidArgumentException for an unknown style. Queries never touch the file system
// except Absolute (the current directory), GetAppDataPath, GetTempHome and ResolveShortcut.
//
// Thread safety: a value type without locks, as VString.
#ifndef VANTU_VPATH_H
#define VANTU_VPATH_H

#include <cstddef>
#include <filesystem>
#include <string>

#include <vantu/Export.h>
#include <vantu/VString.h>

class VANTU_API VPath : public VString {
 public:
  VPath();
  VPath(const VPath& other);
  VPath(const VString& text);  // NOLINT(google-explicit-constructor)
  VPath(const char* text, StringEncoding encoding);
  VPath(const char* text);         // NOLINT(google-explicit-constructor)
  VPath(const std::string& text);  // NOLINT(google-explicit-constructor)
  VPath(const wchar_t* text);      // NOLINT(google-explicit-constructor)
  VPath& operator=(const VPath& other);
  ~VPath() override;

  // A path holding exactly these file-system bytes (a hot folder's callback path, a name read
  // from a directory), as UTF8 text that is not normalised: it names the same file.
  static VPath FromFileSystem(const char* bytes, size_t length);
  static VPath FromFileSystem(const std::string& bytes);
  // The same for a std::filesystem::path's native bytes (VString::FromFilesystemPath as a path).
  // The way back is the inherited ToFilesystemPath.
  static VPath FromFilesystemPath(const std::filesystem::path& path);

  // The user's application-data folder ($XDG_DATA_HOME, else ~/.local/share/), ending in a
  // separator; empty when it cannot be determined. UTF8, the environment's bytes as they are.
  static VPath GetAppDataPath();
  // The temporary folder ($TMPDIR, else /tmp/), ending in a separator. UTF8, the environment's
  // bytes as they are.
  static VPath GetTempHome();

  // The path resolved against the current directory.
  VPath Absolute() const;
  // The directory that holds the path's last name, ending in a separator.
  VPath Parent() const;
  // Appends `other` as relative components. The result takes the higher of the two encodings'
  // StringEncoding values. Hiding VString's Append overloads is intended (see above).
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Woverloaded-virtual"
  void Append(const VPath& other);
#pragma GCC diagnostic pop
  // Rewrites the text in the given Poco::Path style: 0 Unix, 1 Windows, 2 VMS, 3 native, 4 guess.
  void ConvertToStyle(int style);
  // Makes the last name a directory: the text ends in a separator.
  void MakeDirectory();
  // Makes a trailing directory name the file name.
  void MakeFile();
  void SetExtension(const VString& extension);

  // Number of directory levels.
  int Depth() const;
  // Name of directory n; for n == Depth(), the file name; empty outside 0..Depth().
  VString operator[](int n) const;
  VString GetDirectory(int n) const;
  VString GetFileName() const;
  // The file name without its last extension.
  VString GetBaseName() const;
  // The last extension, without the dot.
  VString GetExtension() const;
  // The text alone decides: a directory path has an empty file name.
  bool IsDirectory() const;
  bool IsFile() const;
  // The path written relative to `base`, with the native separator: "../" for each of base's
  // directories not shared, then the path's own remaining directories and its file name.
  VPath MakeRelative(const VPath& base) const;
  // A symbolic link whose target exists is replaced by its fully resolved target; anything else
  // is left as it is, silently.
  void ResolveShortcut();
};

#endif  // VANTU_VPATH_H
