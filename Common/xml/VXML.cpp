#include <vantu/VXML.h>

#include <pugixml.hpp>

#include <algorithm>
#include <cstring>
#include <functional>
#include <istream>
#include <limits>
#include <memory>
#include <ostream>
#include <string>
#include <system_error>

#include <vantu/VErrorHandler.h>
#include <vantu/VException.h>
#include <vantu/VPath.h>

#include "platform/AtomicSave.h"
#include "platform/Descriptor.h"
#include "platform/FileIO.h"
#include "platform/Files.h"
#include "xml/internal/StringAppender.h"

namespace {

// pugixml's parse_default (116): CDATA, escapes, end-of-line and attribute white-space
// conversion. Document type declarations are skipped, never expanded.
constexpr unsigned int kParseFlags = pugi::parse_default;
// Indentation grows with the square of the depth; documents with elements deeper than this are
// written raw.
constexpr unsigned int kDeepestIndentedLevel = 256;
// The bytes that Save gathers before each write to the file.
constexpr size_t kSaveChunk = 64 * 1024;

pugi::xml_node Node(VDataNode node) {
  return pugi::xml_node(static_cast<pugi::xml_node_struct*>(node));
}

VDataNode Handle(const pugi::xml_node& node) { return node.internal_object(); }

// An element with that name (any element when `name` is null).
bool IsElement(const pugi::xml_node& node, const char* name) {
  return node.type() == pugi::node_element &&
         (name == nullptr || std::strcmp(node.name(), name) == 0);
}

// `node` or the first sibling after it that IsElement(name); empty if none.
pugi::xml_node NextElement(pugi::xml_node node, const char* name) {
  while (node && !IsElement(node, name)) node = node.next_sibling();
  return node;
}

// `node` or the first sibling after it that is text or CDATA; empty if none.
pugi::xml_node NextText(pugi::xml_node node) {
  for (;; node = node.next_sibling()) {
    const pugi::xml_node_type type = node.type();  // node_null for an empty node
    if (type == pugi::node_null || type == pugi::node_pcdata || type == pugi::node_cdata) {
      return node;
    }
  }
}

// An XML name as pugixml reads it back: a letter, "_", ":" or a byte >= 0x80 first, then also
// digits, "-" and ".".
bool IsXmlName(const char* name) {
  if (name == nullptr || *name == '\0') return false;
  for (const char* p = name; *p != '\0'; ++p) {
    const auto c = static_cast<unsigned char>(*p);
    const bool letter = (c | 0x20) >= 'a' && (c | 0x20) <= 'z';
    const bool other = (c >= '0' && c <= '9') || c == '-' || c == '.';
    if (!(c >= 0x80 || letter || c == '_' || c == ':' || (p != name && other))) return false;
  }
  return true;
}

// Bytes that can become a value: no embedded NUL.
bool IsValueText(const char* bytes, size_t length) {
  return length == 0 || (bytes != nullptr && std::memchr(bytes, 0, length) == nullptr);
}

bool IsBlank(const char* bytes, size_t length) {
  if (length == 0) return false;
  for (size_t i = 0; i < length; ++i) {
    const char c = bytes[i];
    if (c != ' ' && c != '\t' && c != '\r' && c != '\n') return false;
  }
  return true;
}

// Whether some element lies more than `limit` levels below the document. Walks without
// recursion.
bool DeeperThan(const pugi::xml_node& document, unsigned int limit) {
  pugi::xml_node node = document.first_child();
  unsigned int depth = 1;
  while (node) {
    if (depth > limit && node.type() == pugi::node_element) return true;
    pugi::xml_node next = node.first_child();
    if (next) {
      node = next;
      ++depth;
      continue;
    }
    while (!(next = node.next_sibling())) {
      node = node.parent();
      if (--depth == 0) return false;
    }
    node = next;
  }
  return false;
}

// Writes the declaration node to `writer`: the document's own first node when it is one, with
// version 1.0 and encoding UTF-8, else a new one. Built in a document of its own, so that writing
// never changes the tree that several threads may be reading.
void PrintDeclaration(const pugi::xml_document& document, pugi::xml_writer& writer,
                      unsigned int format) {
  pugi::xml_document scratch;
  const pugi::xml_node first = document.first_child();
  pugi::xml_node declaration = first.type() == pugi::node_declaration
                                   ? scratch.append_copy(first)
                                   : scratch.append_child(pugi::node_declaration);
  for (const char* name : {"version", "encoding"}) {
    if (!declaration.attribute(name)) declaration.append_attribute(name);
  }
  declaration.attribute("version").set_value("1.0");
  declaration.attribute("encoding").set_value("UTF-8");
  declaration.print(writer, "\t", format, pugi::encoding_auto);
}

// The node after `node` in document order, or an empty node after the last. Walking a whole
// document this way visits each node once and climbs each parent link once.
pugi::xml_node Following(pugi::xml_node node) {
  if (pugi::xml_node child = node.first_child()) return child;
  for (; node; node = node.parent()) {
    if (pugi::xml_node sibling = node.next_sibling()) return sibling;
  }
  return node;
}

// Deletes a subtree from its leaves up, so that a deep tree never meets recursion.
void RemoveSubtree(const pugi::xml_node& top) {
  pugi::xml_node node = top;
  for (;;) {
    if (pugi::xml_node child = node.first_child()) {
      node = child;
      continue;
    }
    pugi::xml_node parent = node.parent();
    const bool done = node == top;
    parent.remove_child(node);
    if (done) return;
    node = parent;
  }
}

// The first child element of `parent` named `name`, or the next sibling element of `node` so
// named; empty if none. pugixml's own name search, with nodes other than elements passed over.
pugi::xml_node FirstNamedElement(const pugi::xml_node& parent, const char* name) {
  pugi::xml_node node = parent.child(name);
  while (node && node.type() != pugi::node_element) node = node.next_sibling(name);
  return node;
}

pugi::xml_node NextNamedElement(const pugi::xml_node& node, const char* name) {
  pugi::xml_node next = node.next_sibling(name);
  while (next && next.type() != pugi::node_element) next = next.next_sibling(name);
  return next;
}

// A "/"-separated path, copied with each "/" turned into a NUL, so that its names can be walked
// in both directions without allocating (on the stack for paths of usual length). Empty names
// are skipped.
class PathNames {
 public:
  explicit PathNames(const char* path) : length_(std::strlen(path)) {
    char* copy = local_;
    if (length_ >= sizeof(local_)) {
      heap_.reset(new char[length_ + 1]);
      copy = heap_.get();
    }
    for (size_t i = 0; i <= length_; ++i) copy[i] = path[i] == '/' ? '\0' : path[i];
    begin_ = copy;
    end_ = copy + length_;
  }
  PathNames(const PathNames&) = delete;
  PathNames& operator=(const PathNames&) = delete;

  // The first name; End() when there is none.
  const char* First() const { return Skip(begin_); }
  const char* End() const { return end_; }
  // The name after `name`; End() after the last.
  const char* Next(const char* name) const { return Skip(name + std::strlen(name)); }
  // The name before `name`, which must not be the first.
  const char* Previous(const char* name) const {
    const char* p = name - 1;
    while (*p == '\0') --p;
    while (p > begin_ && p[-1] != '\0') --p;
    return p;
  }

 private:
  const char* Skip(const char* p) const {
    while (p < end_ && *p == '\0') ++p;
    return p;
  }

  size_t length_;
  char local_[256];
  std::unique_ptr<char[]> heap_;
  const char* begin_;
  const char* end_;
};

// Thrown by an OutputWriter that watches indentation when a line is indented too deep.
struct TooDeepToIndent {};

// Passes pugixml's output to a sink. When watching, it throws TooDeepToIndent as soon as the
// output holds a run of kDeepestIndentedLevel tabs: the indentation of an element deeper than
// that (a text value holding such a run counts too; it is then written raw, which changes no
// content). Any such run covers a byte at every stride of half its length, so sampling those
// bytes finds it without reading the others.
class OutputWriter : public pugi::xml_writer {
 public:
  using Sink = std::function<void(const void*, size_t)>;
  OutputWriter(const Sink& sink, bool watch) : sink_(sink), watch_(watch) {}

  void write(const void* data, size_t size) override {
    if (watch_) Watch(static_cast<const char*>(data), size);
    sink_(data, size);
  }

 private:
  static constexpr size_t kRun = kDeepestIndentedLevel;

  void Watch(const char* data, size_t size) {
    size_t lead = 0;  // the run that continues the previous chunk's last one
    while (lead < size && data[lead] == '\t') ++lead;
    if (carried_ + lead >= kRun) throw TooDeepToIndent();
    for (size_t i = lead + kRun / 2; i < size; i += kRun / 2) {
      if (data[i] != '\t') continue;
      size_t first = i;
      size_t last = i;
      while (first > 0 && data[first - 1] == '\t') --first;
      while (last + 1 < size && data[last + 1] == '\t') ++last;
      if (last - first + 1 >= kRun) throw TooDeepToIndent();
      i = last;
    }
    size_t trail = 0;
    while (trail < size && data[size - 1 - trail] == '\t') ++trail;
    carried_ = trail == size ? carried_ + size : trail;
  }

  const Sink& sink_;
  const bool watch_;
  size_t carried_ = 0;
};

// Writes the document's top-level nodes other than declarations to `sink`, after a declaration
// when `declaration`, indented when `indent`. The tree is only read. A document too deep to indent
// is written raw: with `rewind`, which discards what was written, once the output turns out too
// deep; without it, after a walk that measures the depth first.
void WriteDocument(const pugi::xml_document& document, bool indent, bool declaration,
                   const OutputWriter::Sink& sink, const std::function<void()>& rewind) {
  const auto writeAll = [&](unsigned int format, bool watch) {
    OutputWriter writer(sink, watch);
    if (declaration) PrintDeclaration(document, writer, format);
    for (pugi::xml_node node = document.first_child(); node; node = node.next_sibling()) {
      if (node.type() != pugi::node_declaration) {
        node.print(writer, "\t", format, pugi::encoding_auto);
      }
    }
  };
  constexpr unsigned int kRaw = pugi::format_indent | pugi::format_raw;
  if (!indent || (!rewind && DeeperThan(document, kDeepestIndentedLevel))) {
    return writeAll(kRaw, false);
  }
  try {
    writeAll(pugi::format_indent, static_cast<bool>(rewind));
  } catch (const TooDeepToIndent&) {
    rewind();
    writeAll(kRaw, false);
  }
}

// Where a parse error lies, as a reader of the document counts: line and column (both from 1,
// the column in characters) of pugixml's offset. The offset counts bytes of the document as
// pugixml parsed it, in UTF-8, so the original bytes are decoded in the encoding pugixml found
// and each character advances the offset by the length of its UTF-8 form. Fed in pieces.
class ErrorPosition {
 public:
  ErrorPosition(pugi::xml_encoding encoding, size_t offset) : encoding_(encoding), left_(offset) {}

  // False once the offset is reached: nothing more is needed.
  bool Feed(const void* data, size_t size) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (size_t i = 0; i < size && left_ > 0; ++i) Byte(bytes[i]);
    return left_ > 0;
  }
  // " at line L, column C".
  std::string Text() const {
    return " at line " + std::to_string(line_) + ", column " + std::to_string(column_);
  }

 private:
  void Byte(unsigned char byte) {
    unit_[held_++] = byte;
    switch (encoding_) {
      case pugi::encoding_utf16_le:
      case pugi::encoding_utf16_be: {
        if (held_ % 2 != 0) return;
        const bool le = encoding_ == pugi::encoding_utf16_le;
        const auto unit = [&](int at) {
          return le ? unit_[at] | unit_[at + 1] << 8 : unit_[at] << 8 | unit_[at + 1];
        };
        const uint32_t first = unit(0);
        if (held_ == 2 && first >= 0xD800 && first < 0xDC00) return;  // a pair's first half
        Character(held_ == 4 ? 0x10000 : first);
        return;
      }
      case pugi::encoding_utf32_le:
      case pugi::encoding_utf32_be:
        if (held_ < 4) return;
        Character(encoding_ == pugi::encoding_utf32_le
                      ? uint32_t{unit_[0]} | unit_[1] << 8 | unit_[2] << 16 |
                            uint32_t{unit_[3]} << 24
                      : uint32_t{unit_[0]} << 24 | unit_[1] << 16 | unit_[2] << 8 | unit_[3]);
        return;
      case pugi::encoding_latin1:
        Character(byte);
        return;
      default: {  // UTF-8: the bytes themselves; a stray continuation byte counts as a character
        const unsigned char lead = unit_[0];
        const size_t length = lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        if (held_ < length) return;
        held_ = 0;
        Advance(length, unit_[0] == '\n',
                length == 3 && unit_[0] == 0xEF && unit_[1] == 0xBB && unit_[2] == 0xBF);
        return;
      }
    }
  }
  void Character(uint32_t code) {
    held_ = 0;
    const size_t length = code < 0x80 ? 1 : code < 0x800 ? 2 : code < 0x10000 ? 3 : 4;
    Advance(length, code == '\n', code == 0xFEFF);
  }
  void Advance(size_t length, bool newLine, bool mark) {
    left_ = left_ > length ? left_ - length : 0;
    if (newLine) {
      ++line_;
      column_ = 1;
    } else if (!(mark && first_)) {  // a byte-order mark is no character
      ++column_;
    }
    first_ = false;
  }

  pugi::xml_encoding encoding_;
  size_t left_;
  unsigned char unit_[4] = {};
  size_t held_ = 0;
  size_t line_ = 1;
  size_t column_ = 1;
  bool first_ = true;
};

// Loads the file at `path` into `document` through one descriptor, opened without blocking and
// checked to be a regular file: a FIFO or device put in the file's place fails instead of
// holding the caller. The bytes go to pugixml in one buffer it takes over.
pugi::xml_parse_result LoadFile(pugi::xml_document& document, const std::string& path,
                                std::string& where) {
  namespace platform = vantu::platform;
  void* buffer = nullptr;
  const auto failure = [&buffer](pugi::xml_parse_status status) {
    if (buffer != nullptr) pugi::get_memory_deallocation_function()(buffer);
    pugi::xml_parse_result result;
    result.status = status;
    return result;
  };
  int fd = -1;
  try {
    fd = platform::OpenForReadingFd(path);
  } catch (const std::system_error& error) {
    const std::error_condition condition = error.code().default_error_condition();
    if (condition == std::errc::is_a_directory || condition == std::errc::invalid_argument) {
      throw VantuInvalidArgumentException(path + " is not a file");
    }
    return failure(pugi::status_file_not_found);
  }
  const platform::Descriptor file(fd);
  size_t length = 0;
  try {
    const unsigned long long size = platform::GetFileSize(fd);
    if (size >= std::numeric_limits<size_t>::max()) return failure(pugi::status_out_of_memory);
    buffer = pugi::get_memory_allocation_function()(size > 0 ? static_cast<size_t>(size) : 1);
    if (buffer == nullptr) return failure(pugi::status_out_of_memory);
    length = platform::ReadAt(fd, buffer, static_cast<size_t>(size), 0);
  } catch (const std::system_error&) {
    return failure(pugi::status_io_error);
  }
  const pugi::xml_parse_result result =
      document.load_buffer_inplace_own(buffer, length, kParseFlags, pugi::encoding_auto);
  if (!result) {
    // pugixml parsed the bytes in place: the position is counted on them read again.
    ErrorPosition position(result.encoding, static_cast<size_t>(result.offset));
    try {
      char piece[16384];
      for (unsigned long long at = 0; at < length;) {
        const size_t got = platform::ReadAt(fd, piece, sizeof(piece), at);
        if (got == 0 || !position.Feed(piece, got)) break;
        at += got;
      }
      where = position.Text();
    } catch (const std::system_error&) {
    }
  }
  return result;
}

}  // namespace

VXML::VXML() = default;

VXML::VXML(const VXML& other) : VDataContainer(other) {
  if (other.document_ != nullptr) {
    auto copy = std::make_unique<pugi::xml_document>();
    copy->reset(*other.document_);
    document_ = copy.release();
  }
}

VXML::~VXML() { delete document_; }

pugi::xml_document& VXML::Document() {
  if (document_ == nullptr) document_ = new pugi::xml_document;
  return *document_;
}

bool VXML::Load(const std::string& path, bool quiet) {
  lastError_.clear();
  try {
    if (!VPath::FromFileSystem(path).IsFile()) {
      throw VantuInvalidArgumentException(path + " is not a file");
    }
    vantu::platform::FileIdentity identity;
    if (!vantu::platform::GetFileIdentity(path, identity)) {
      throw VantuFileNotFoundException("File " + path + " not found");
    }
    Clear();
    std::string where;
    const pugi::xml_parse_result result = LoadFile(Document(), path, where);
    if (!result) {
      document_->reset();
      lastError_ = result.description() + where;
      throw VantuXMLParseException(std::string(result.description()) +
                                   " Offset: " + std::to_string(result.offset));
    }
    return true;
  } catch (const VException& exception) {
    if (lastError_.empty()) lastError_ = exception.Message();
    if (!quiet) VErrorHandler::Report(exception);
  } catch (const std::exception& exception) {
    if (lastError_.empty()) lastError_ = exception.what();
  } catch (...) {
  }
  return false;
}

bool VXML::Load(std::istream& in) {
  lastError_.clear();
  Clear();
  const std::istream::pos_type start = in.tellg();
  const pugi::xml_parse_result result = Document().load(in, kParseFlags, pugi::encoding_auto);
  if (!result) {
    document_->reset();
    lastError_ = result.description();
    // pugixml parsed its copy of the text in place: the position is counted on the text read
    // again, where the stream can go back; the stream is then left as the parse left it.
    if (start != std::istream::pos_type(-1)) {
      const std::ios_base::iostate state = in.rdstate();
      in.clear();
      const std::istream::pos_type end = in.tellg();
      try {
        if (in.seekg(start)) {
          ErrorPosition position(result.encoding, static_cast<size_t>(result.offset));
          char piece[16384];
          while (in.read(piece, sizeof(piece)) || in.gcount() > 0) {
            if (!position.Feed(piece, static_cast<size_t>(in.gcount()))) break;
          }
          lastError_ += position.Text();
        }
        in.clear();
        if (end != std::istream::pos_type(-1)) in.seekg(end);
        in.clear(state);
      } catch (...) {
        // A stream that throws on its own failures: the description alone.
      }
    }
    throw VantuXMLElementException(result.description());
  }
  return true;
}

int VXML::Parse(const std::string& text) {
  lastError_.clear();
  try {
    pugi::xml_document& document = Document();
    const pugi::xml_parse_result result =
        document.load_buffer(text.data(), text.size(), kParseFlags, pugi::encoding_auto);
    if (result) return 0;
    document.reset();
    ErrorPosition position(result.encoding, static_cast<size_t>(result.offset));
    position.Feed(text.data(), text.size());
    lastError_ = result.description() + position.Text();
  } catch (const std::exception& exception) {
    lastError_ = exception.what();
  } catch (...) {
  }
  return -1;
}

VString VXML::GetLastErrorText() const { return VString(lastError_, UTF8); }

bool VXML::Save(const std::string& path) {
  if (document_ == nullptr) return false;
  try {
    vantu::platform::FileReplacement file(path);
    // pugixml hands its output over in pieces of about 2 KB; they reach the file in larger writes.
    std::string pending;
    pending.reserve(kSaveChunk);
    const auto write = [&file, &pending](const void* data, size_t size) {
      if (pending.size() + size > kSaveChunk) {
        file.Write(pending.data(), pending.size());
        pending.clear();
      }
      if (size >= kSaveChunk) {
        file.Write(data, size);
      } else {
        pending.append(static_cast<const char*>(data), size);
      }
    };
    WriteDocument(*document_, true, true, write, [&file, &pending] {
      pending.clear();
      file.Restart();
    });
    file.Write(pending.data(), pending.size());
    file.Commit();
  } catch (...) {
    throw VantuPathNotFoundException("Exception saving XML document");
  }
  return true;
}

bool VXML::Save(std::ostream& out, unsigned int flags) {
  if (document_ == nullptr) return false;
  // Output into a string (ToString) can be taken back; into another stream it cannot.
  std::function<void()> rewind;
  if (auto* appender = dynamic_cast<vantu::internal::StringAppender*>(out.rdbuf())) {
    rewind = [appender, start = appender->text().size()] { appender->text().resize(start); };
  }
  // Without bit 1, a declaration node that the tree holds is not written either.
  WriteDocument(
      *document_, (flags & 1) != 0, (flags & 2) != 0,
      [&out](const void* data, size_t size) {
        out.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
      },
      rewind);
  return !out.fail();
}

VDataNode VXML::GetRoot() const {
  return document_ == nullptr ? nullptr : Handle(document_->document_element());
}

VDataNode VXML::AddNode(VDataNode parent, const char* name) {
  if (!IsXmlName(name)) return nullptr;
  if (parent == nullptr) {
    pugi::xml_document& document = Document();
    return document.document_element() ? nullptr : Handle(document.append_child(name));
  }
  return Handle(Node(parent).append_child(name));
}

// Whether pugixml's first_element_by_path gives what GetNode's own search does for `path`
// (after its leading "/"s), as long as its result is an element: it has at least one name and at
// most kLinkedPathNames (pugixml recurses once per name), and no name "." or "..", which pugixml
// reads as the node itself and its parent. Its search also looks into nodes other than elements
// that bear the name; they have no children, so only a last name can end on one.
constexpr size_t kLinkedPathNames = 64;

bool PugixmlReadsPathAsWe(const char* path) {
  // The usual path: short enough to hold no more names than that, and no "." at all.
  const size_t length = std::strlen(path);
  if (length != 0 && length <= 2 * kLinkedPathNames && std::memchr(path, '.', length) == nullptr) {
    return true;
  }
  size_t names = 0;
  for (const char* p = path; *p != '\0';) {
    if (*p == '/') {
      ++p;
      continue;
    }
    const char* end = p;
    while (*end != '\0' && *end != '/') ++end;
    if (p[0] == '.' && (end == p + 1 || (p[1] == '.' && end == p + 2))) return false;
    if (++names > kLinkedPathNames) return false;
    p = end;
  }
  return names != 0;
}

VDataNode VXML::GetNode(VDataNode parent, const char* path) const {
  if (path == nullptr || (parent == nullptr && document_ == nullptr)) return nullptr;
  const pugi::xml_node start = parent != nullptr ? Node(parent) : *document_;
  while (*path == '/') ++path;  // pugixml would start at the document
  if (PugixmlReadsPathAsWe(path)) {
    const pugi::xml_node found = start.first_element_by_path(path);
    if (!found || found.type() == pugi::node_element) return Handle(found);
  }
  const PathNames names(path);
  const char* const first = names.First();
  if (first == names.End()) return nullptr;
  // A depth-first search: `node` is the candidate for `name`, `above` the node whose children
  // hold it. A level without a further match climbs back to the previous name and goes on with
  // the next sibling there, so that neither the path's length nor the tree's depth costs
  // recursion or memory.
  const char* name = first;
  pugi::xml_node above = start;
  pugi::xml_node node = FirstNamedElement(above, name);
  for (;;) {
    if (!node) {
      if (name == first) return nullptr;
      name = names.Previous(name);
      node = above;
      above = node.parent();
      node = NextNamedElement(node, name);
      continue;
    }
    const char* next = names.Next(name);
    if (next == names.End()) return Handle(node);
    name = next;
    above = node;
    node = FirstNamedElement(above, name);
  }
}

bool VXML::RemoveNode(VDataNode node) {
  if (node == nullptr) return false;
  RemoveSubtree(Node(node));
  return true;
}

bool VXML::SetValue(VDataNode node, const char* bytes, size_t length) {
  pugi::xml_node element = Node(node);
  if (element.type() != pugi::node_element || !IsValueText(bytes, length)) return false;
  // The new text takes the place of the first text child; the other text children go, the
  // element children stay. An empty value leaves no text node.
  pugi::xml_node first = NextText(element.first_child());
  pugi::xml_node kept;  // the text node that holds the new value
  if (length != 0) {
    // White space alone survives a load only in a CDATA section.
    const pugi::xml_node_type type = IsBlank(bytes, length) ? pugi::node_cdata : pugi::node_pcdata;
    if (first.type() == type) {
      // The first text node of that kind takes the value in place.
      if (!first.set_value(bytes, length)) return false;
      kept = first;
    } else {
      kept = first ? element.insert_child_before(type, first) : element.append_child(type);
      if (!kept || !kept.set_value(bytes, length)) {
        element.remove_child(kept);
        return false;
      }
    }
  }
  for (pugi::xml_node text = first; text;) {
    const pugi::xml_node next = NextText(text.next_sibling());
    if (text != kept) element.remove_child(text);
    text = next;
  }
  return true;
}

bool VXML::GetName(VDataNode node, std::string& name) const {
  if (node == nullptr) return false;
  name.assign(Node(node).name());
  return true;
}

VDataNode VXML::GetFirstChild(VDataNode parent, const char* name) const {
  if (parent != nullptr) return Handle(NextElement(Node(parent).first_child(), name));
  return document_ == nullptr ? nullptr : Handle(NextElement(document_->first_child(), name));
}

VDataNode VXML::GetNextSibling(VDataNode node, const char* name) const {
  return node == nullptr ? nullptr : Handle(NextElement(Node(node).next_sibling(), name));
}

VDataNode VXML::GetParent(VDataNode node) const {
  const pugi::xml_node parent = Node(node).parent();
  return parent.type() == pugi::node_element ? Handle(parent) : nullptr;
}

int VXML::CountNodes(VDataNode parent, const char* name) const {
  int count = 0;
  for (VDataNode node = GetFirstChild(parent, name); node != nullptr;
       node = GetNextSibling(node, name)) {
    ++count;
  }
  return count;
}

bool VXML::SetAttribute(VDataNode node, const char* name, const char* bytes, size_t length) {
  pugi::xml_node element = Node(node);
  if (element.type() != pugi::node_element || !IsXmlName(name) || !IsValueText(bytes, length)) {
    return false;
  }
  pugi::xml_attribute attribute = element.attribute(name);
  if (!attribute) attribute = element.append_attribute(name);
  return attribute.set_value(length == 0 ? "" : bytes, length);
}

bool VXML::GetAttribute(VDataNode node, const char* name, std::string& bytes) const {
  if (node == nullptr || name == nullptr) return false;
  const pugi::xml_attribute attribute = Node(node).attribute(name);
  if (!attribute) return false;
  bytes.assign(attribute.value());
  return true;
}

bool VXML::RemoveAttribute(VDataNode node, const char* name) {
  return node != nullptr && name != nullptr && Node(node).remove_attribute(name);
}

int VXML::CountChildren() const {
  if (document_ == nullptr) return -1;
  int count = 0;
  for (pugi::xml_node node = document_->first_child(); node; node = node.next_sibling()) ++count;
  return count;
}

bool VXML::Copy(const VDataContainer& other, unsigned int) {
  const VXML* source = dynamic_cast<const VXML*>(&other);
  if (source == nullptr) return false;
  if (source == this) return true;
  auto copy = std::make_unique<pugi::xml_document>();
  if (source->document_ != nullptr) copy->reset(*source->document_);
  delete document_;
  document_ = copy.release();
  SetEncoding(source->GetEncoding());
  return true;
}

bool VXML::IsEmpty() const {
  if (document_ == nullptr) return true;
  const pugi::xml_node root = document_->document_element();
  return !root || (!root.first_child() && !root.first_attribute());
}

void VXML::Clear() {
  delete document_;
  document_ = nullptr;
}

int VXML::GetAttributeNames(VDataNode node, std::vector<std::string>& names) const {
  int count = 0;
  for (pugi::xml_attribute attribute = Node(node).first_attribute(); attribute;
       attribute = attribute.next_attribute()) {
    names.emplace_back(attribute.name());
    ++count;
  }
  return count;
}

VDataNode VXML::CopyNode(VDataNode parent, const VDataContainer& source, VDataNode sourceNode) {
  const pugi::xml_node original = Node(sourceNode);
  if (dynamic_cast<const VXML*>(&source) == nullptr || original.type() != pugi::node_element) {
    return nullptr;
  }
  if (parent != nullptr) return Handle(Node(parent).append_copy(original));
  pugi::xml_document& document = Document();
  return document.document_element() ? nullptr : Handle(document.append_copy(original));
}

bool VXML::SetName(VDataNode node, const char* name) {
  pugi::xml_node element = Node(node);
  return element.type() == pugi::node_element && IsXmlName(name) && element.set_name(name);
}

bool VXML::GetValue(VDataNode node, std::string& bytes) const {
  if (node == nullptr) return false;
  bytes.clear();
  for (pugi::xml_node text = NextText(Node(node).first_child()); text;
       text = NextText(text.next_sibling())) {
    bytes += text.value();
  }
  return true;
}

int VXML::SelectNodes(const char* xpath, std::vector<VDataNode>& nodes) const {
  if (xpath == nullptr) return -1;
  try {
    const pugi::xpath_query query(xpath);
    if (query.return_type() != pugi::xpath_type_node_set) return -1;
    if (document_ == nullptr) return 0;
    pugi::xpath_node_set result = query.evaluate_node_set(*document_);
    const size_t before = nodes.size();
    if (result.type() == pugi::xpath_node_set::type_unsorted && result.size() > 1) {
      // pugixml puts such a set in order by comparing positions, each comparison climbing the
      // tree: on a deep document whose nodes are not in the parse buffer's order (a copy, or one
      // built by calls) that costs the square of the depth. One walk picks them out in order.
      std::vector<VDataNode> wanted;
      for (const pugi::xpath_node& found : result) {
        if (found.node().type() == pugi::node_element) wanted.push_back(Handle(found.node()));
      }
      std::sort(wanted.begin(), wanted.end());
      for (pugi::xml_node node = Following(*document_);
           node && nodes.size() - before < wanted.size(); node = Following(node)) {
        if (std::binary_search(wanted.begin(), wanted.end(), Handle(node))) {
          nodes.push_back(Handle(node));
        }
      }
    } else {
      result.sort();
      for (const pugi::xpath_node& found : result) {
        if (found.node().type() == pugi::node_element) nodes.push_back(Handle(found.node()));
      }
    }
    return static_cast<int>(nodes.size() - before);
  } catch (const pugi::xpath_exception&) {
    return -1;
  }
}

VDataNode VXML::SelectNode(const char* xpath) const {
  std::vector<VDataNode> nodes;
  return SelectNodes(xpath, nodes) > 0 ? nodes.front() : nullptr;
}

VXML& VXML::operator=(const VXML& other) {
  if (this != &other) Copy(other, 0);
  return *this;
}

pugi::xml_document* VXML::GetDocument() const { return document_; }
