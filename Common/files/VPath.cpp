#include <vantu/VPath.h>

#include <Poco/Path.h>

#include <algorithm>
#include <utility>
#include <vector>

#include <vantu/VException.h>

#include "internal/PathText.h"
#include "platform/Files.h"

namespace {

using vantu::internal::PathBytes;
using vantu::internal::SetPathBytes;

// The style every path text is parsed and printed with.
constexpr Poco::Path::Style kStyle = Poco::Path::PATH_NATIVE;

Poco::Path Parse(const VString& path) { return Poco::Path(PathBytes(path), kStyle); }

// A new VPath from file-system bytes, in `encoding`.
VPath MakePath(const std::string& bytes, StringEncoding encoding) {
  VPath path;
  SetPathBytes(path, bytes, encoding);
  return path;
}

VString MakeText(const std::string& bytes, StringEncoding encoding) {
  VString text;
  SetPathBytes(text, bytes, encoding);
  return text;
}

}  // namespace

VPath::VPath() = default;
VPath::VPath(const VPath& other) = default;
VPath::VPath(const VString& text) : VString(text) {}
VPath::VPath(const char* text, StringEncoding encoding) : VString(text, encoding) {}
VPath::VPath(const char* text) : VString(text) {}
VPath::VPath(const std::string& text) : VString(text) {}
VPath::VPath(const wchar_t* text) : VString(text) {}
VPath& VPath::operator=(const VPath& other) {
  Assign(other);
  return *this;
}
VPath::~VPath() = default;

VPath VPath::FromFileSystem(const char* bytes, size_t length) {
  return MakePath(std::string(bytes, length), UTF8);
}

VPath VPath::FromFileSystem(const std::string& bytes) { return MakePath(bytes, UTF8); }

VPath VPath::FromFilesystemPath(const std::filesystem::path& path) {
  return MakePath(path.native(), UTF8);
}

// The folders from the environment are file-system bytes: kept as they are, in UTF8.
VPath VPath::GetAppDataPath() {
  try {
    VPath path = MakePath(Poco::Path::dataHome(), UTF8);
    path.MakeDirectory();
    return path;
  } catch (...) {
    return VPath();
  }
}

VPath VPath::GetTempHome() { return MakePath(Poco::Path::temp(), UTF8); }

VPath VPath::Absolute() const {
  return MakePath(Parse(*this).absolute().toString(kStyle), GetEncoding());
}

VPath VPath::Parent() const {
  return MakePath(Parse(*this).parent().toString(kStyle), GetEncoding());
}

void VPath::Append(const VPath& other) {
  Poco::Path path = Parse(*this);
  path.append(Parse(other));
  SetPathBytes(*this, path.toString(kStyle), std::max(GetEncoding(), other.GetEncoding()));
}

void VPath::ConvertToStyle(int style) {
  if (style < Poco::Path::PATH_UNIX || style > Poco::Path::PATH_GUESS) {
    throw VantuInvalidArgumentException("VPath::ConvertToStyle: unknown path style " +
                                        std::to_string(style));
  }
  SetPathBytes(*this, Parse(*this).toString(static_cast<Poco::Path::Style>(style)), GetEncoding());
}

void VPath::MakeDirectory() {
  SetPathBytes(*this, Parse(*this).makeDirectory().toString(kStyle), GetEncoding());
}

void VPath::MakeFile() {
  SetPathBytes(*this, Parse(*this).makeFile().toString(kStyle), GetEncoding());
}

void VPath::SetExtension(const VString& extension) {
  SetPathBytes(*this, Parse(*this).setExtension(PathBytes(extension)).toString(kStyle),
               GetEncoding());
}

int VPath::Depth() const { return Parse(*this).depth(); }

VString VPath::operator[](int n) const { return GetDirectory(n); }

VString VPath::GetDirectory(int n) const {
  const Poco::Path path = Parse(*this);
  if (n < 0 || n > path.depth()) return VString(GetEncoding());
  return MakeText(path[n], GetEncoding());
}

VString VPath::GetFileName() const { return MakeText(Parse(*this).getFileName(), GetEncoding()); }

VString VPath::GetBaseName() const { return MakeText(Parse(*this).getBaseName(), GetEncoding()); }

VString VPath::GetExtension() const { return MakeText(Parse(*this).getExtension(), GetEncoding()); }

bool VPath::IsDirectory() const { return Parse(*this).isDirectory(); }

bool VPath::IsFile() const { return Parse(*this).isFile(); }

VPath VPath::MakeRelative(const VPath& base) const {
  Poco::Path path = Parse(*this);
  Poco::Path from = Parse(base);
  if (path.isDirectory()) path.setFileName("");
  if (from.isDirectory()) from.setFileName("");
  if (path.getDevice() != from.getDevice()) return *this;

  std::vector<std::string> fromNames;
  std::vector<std::string> pathNames;
  for (int i = 0; i < from.depth(); ++i) fromNames.push_back(from[i]);
  for (int i = 0; i < path.depth(); ++i) pathNames.push_back(path[i]);
  size_t shared = 0;
  while (shared < fromNames.size() && shared < pathNames.size() &&
         fromNames[shared] == pathNames[shared]) {
    ++shared;
  }
  const char separator = Poco::Path::separator();
  std::string text;
  for (size_t i = shared; i < fromNames.size(); ++i) {
    text += "..";
    text.push_back(separator);
  }
  for (size_t i = shared; i < pathNames.size(); ++i) {
    text += pathNames[i];
    text.push_back(separator);
  }
  text += path.getFileName();
  return MakePath(text, GetEncoding());
}

void VPath::ResolveShortcut() {
  std::string target;
  if (vantu::platform::ResolveSymbolicLink(PathBytes(*this), target)) {
    SetPathBytes(*this, target, GetEncoding());
  }
}
