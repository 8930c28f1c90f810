#include "zip/internal/ZipFormat.h"

#include <vantu/VException.h>

#include <Poco/DateTime.h>
#include <Poco/Timestamp.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <system_error>

#include "internal/Crc32.h"
#include "internal/TextConversion.h"
#include "internal/Utf.h"
#include "platform/FileIO.h"
#include "platform/Time.h"

namespace vantu::internal {
namespace {

constexpr uint32_t kLocalSignature = 0x04034b50;
constexpr uint32_t kCentralSignature = 0x02014b50;
constexpr uint32_t kEndSignature = 0x06054b50;
constexpr uint32_t kEnd64Signature = 0x06064b50;
constexpr uint32_t kEnd64LocatorSignature = 0x07064b50;
constexpr size_t kLocalHeaderSize = 30;
constexpr size_t kCentralHeaderSize = 46;
constexpr size_t kEndSize = 22;
constexpr size_t kEnd64Size = 56;
constexpr size_t kEnd64LocatorSize = 20;

uint16_t Get16(const unsigned char* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
uint32_t Get32(const unsigned char* p) {
  return Get16(p) | static_cast<uint32_t>(Get16(p + 2)) << 16;
}
uint64_t Get64(const unsigned char* p) {
  return Get32(p) | static_cast<uint64_t>(Get32(p + 4)) << 32;
}

[[noreturn]] void Corrupt(const std::string& what) {
  throw VantuDataException("Corrupt zip archive: " + what);
}

// Code page 437, the format's original name encoding, for bytes 0x80-0xFF.
const char16_t kCodePage437[128] = {
    0x00C7, 0x00FC, 0x00E9, 0x00E2, 0x00E4, 0x00E0, 0x00E5, 0x00E7, 0x00EA, 0x00EB, 0x00E8, 0x00EF,
    0x00EE, 0x00EC, 0x00C4, 0x00C5, 0x00C9, 0x00E6, 0x00C6, 0x00F4, 0x00F6, 0x00F2, 0x00FB, 0x00F9,
    0x00FF, 0x00D6, 0x00DC, 0x00A2, 0x00A3, 0x00A5, 0x20A7, 0x0192, 0x00E1, 0x00ED, 0x00F3, 0x00FA,
    0x00F1, 0x00D1, 0x00AA, 0x00BA, 0x00BF, 0x2310, 0x00AC, 0x00BD, 0x00BC, 0x00A1, 0x00AB, 0x00BB,
    0x2591, 0x2592, 0x2593, 0x2502, 0x2524, 0x2561, 0x2562, 0x2556, 0x2555, 0x2563, 0x2551, 0x2557,
    0x255D, 0x255C, 0x255B, 0x2510, 0x2514, 0x2534, 0x252C, 0x251C, 0x2500, 0x253C, 0x255E, 0x255F,
    0x255A, 0x2554, 0x2569, 0x2566, 0x2560, 0x2550, 0x256C, 0x2567, 0x2568, 0x2564, 0x2565, 0x2559,
    0x2558, 0x2552, 0x2553, 0x256B, 0x256A, 0x2518, 0x250C, 0x2588, 0x2584, 0x258C, 0x2590, 0x2580,
    0x03B1, 0x00DF, 0x0393, 0x03C0, 0x03A3, 0x03C3, 0x00B5, 0x03C4, 0x03A6, 0x0398, 0x03A9, 0x03B4,
    0x221E, 0x03C6, 0x03B5, 0x2229, 0x2261, 0x00B1, 0x2265, 0x2264, 0x2320, 0x2321, 0x00F7, 0x2248,
    0x00B0, 0x2219, 0x00B7, 0x221A, 0x207F, 0x00B2, 0x25A0, 0x00A0,
};

std::string FromCodePage437(const std::string& bytes) {
  std::u16string wide;
  for (unsigned char c : bytes) wide.push_back(c < 0x80 ? c : kCodePage437[c - 0x80]);
  std::string out;
  AppendUtf8FromUtf16(wide.data(), wide.size(), out);
  return out;
}

// Applies the extra fields of a central record: ZIP64 sizes and offset, the "UT" time and the
// Info-ZIP Unicode path. Returns whether a "UT" time was found.
bool ReadExtraFields(const unsigned char* extra, size_t size, const std::string& rawName,
                     uint32_t size32, uint32_t compressed32, uint32_t offset32, uint32_t dosTime,
                     ZipRecord& record, std::string& unicodeName) {
  bool timed = false;
  while (size >= 4) {
    const uint16_t tag = Get16(extra);
    const uint16_t length = Get16(extra + 2);
    if (length > size - 4) break;  // a malformed tail is ignored, as other readers do
    const unsigned char* data = extra + 4;
    if (tag == 0x0001) {
      size_t at = 0;
      auto next = [&](uint64_t& value) {
        if (at + 8 > length) Corrupt("short ZIP64 field for \"" + rawName + "\"");
        value = Get64(data + at);
        at += 8;
      };
      if (size32 == 0xFFFFFFFF) next(record.size);
      if (compressed32 == 0xFFFFFFFF) next(record.compressedSize);
      if (offset32 == 0xFFFFFFFF) next(record.localOffset);
    } else if (tag == 0x5455 && length >= 5 && (data[0] & 1)) {
      // A signed 32-bit time; where the MS-DOS time says 2038 or later, an unsigned one. Only
      // values with the top bit set need the MS-DOS time (and its time-zone conversion).
      const uint32_t time = Get32(data + 1);
      record.modifiedSeconds =
          time < 0x80000000u ||
                  (timed ? record.modifiedSeconds : SecondsFromDosTime(dosTime)) >= 0x7FFFFFFF
              ? static_cast<long long>(time)
              : static_cast<long long>(static_cast<int32_t>(time));
      timed = true;
    } else if (tag == 0x7075 && length >= 5 && data[0] == 1) {
      const uint32_t nameCrc = Get32(data + 1);
      if (Crc32(0, rawName.data(), rawName.size()) == nameCrc)
        unicodeName.assign(reinterpret_cast<const char*>(data + 5), length - 5);
    }
    extra += 4 + length;
    size -= 4 + length;
  }
  return timed;
}

// Where the end of central directory record starts: in the last 22 + 65535 bytes (its comment
// holds at most 65535), the last signature whose comment fits.
uint64_t FindEndRecord(const ArchiveFile& file) {
  const uint64_t fileSize = file.Size();
  if (fileSize < kEndSize) throw VantuDataException("Not a zip archive (too short)");
  const size_t tailSize = static_cast<size_t>(std::min<uint64_t>(fileSize, kEndSize + 0xFFFF));
  std::vector<unsigned char> tail(tailSize);
  const uint64_t tailStart = fileSize - tailSize;
  file.Read(tail.data(), tailSize, tailStart);
  for (size_t i = tailSize - kEndSize + 1; i-- > 0;) {
    if (Get32(&tail[i]) == kEndSignature && Get16(&tail[i + 20]) <= tailSize - kEndSize - i) {
      return tailStart + i;
    }
  }
  throw VantuDataException("Not a zip archive (no end of central directory)");
}

}  // namespace

ArchiveFile::ArchiveFile(const std::string& path)
    : fd_(platform::OpenForReadingFd(path)), size_(0) {
  try {
    size_ = platform::GetFileSize(fd_);
  } catch (...) {
    platform::CloseFileQuietly(fd_);
    throw;
  }
}

ArchiveFile::~ArchiveFile() { platform::CloseFileQuietly(fd_); }

size_t ArchiveFile::ReadSome(void* buffer, size_t size, uint64_t offset) const {
  if (offset >= size_) return 0;
  try {
    return platform::ReadAt(fd_, buffer, size, offset);
  } catch (const std::system_error& error) {
    throw VantuIOException(std::string("Cannot read the archive: ") + error.what());
  }
}

void ArchiveFile::Read(void* buffer, size_t size, uint64_t offset) const {
  if (ReadSome(buffer, size, offset) != size) Corrupt("the archive is truncated");
}

bool ZipRecord::IsDirectory() const {
  if (!name.empty() && name.back() == '/') return true;
  if ((madeBy >> 8) == kMadeByUnix && (externalAttributes >> 16) != 0) {
    return ((externalAttributes >> 16) & kUnixTypeMask) == kUnixDirectory;
  }
  return (externalAttributes & 0x10) != 0;  // the MS-DOS directory attribute
}

bool ZipRecord::IsSymbolicLink() const {
  return (madeBy >> 8) == kMadeByUnix &&
         ((externalAttributes >> 16) & kUnixTypeMask) == kUnixSymbolicLink;
}

unsigned ZipRecord::UnixMode() const {
  return (madeBy >> 8) == kMadeByUnix ? (externalAttributes >> 16) & 0777 : 0;
}

void (*g_appendStepHook)(int step) = nullptr;

std::vector<ZipRecord> ReadCentralDirectory(const ArchiveFile& file, ZipDirectoryPlace* place) {
  const uint64_t endOffset = FindEndRecord(file);
  unsigned char e[kEndSize];
  file.Read(e, kEndSize, endOffset);
  if (Get16(e + 4) != 0 || Get16(e + 6) != 0) {
    throw VantuDataException("Archives split over several disks are not supported");
  }
  uint64_t count = Get16(e + 10);
  uint64_t directorySize = Get32(e + 12);
  uint64_t directoryOffset = Get32(e + 16);
  uint64_t directoryEnd = endOffset;  // where the directory should end in the file

  // ZIP64: a locator right before the end record points to the ZIP64 end record.
  if (endOffset >= kEnd64LocatorSize) {
    unsigned char locator[kEnd64LocatorSize];
    file.Read(locator, sizeof(locator), endOffset - kEnd64LocatorSize);
    if (Get32(locator) == kEnd64LocatorSignature) {
      const uint64_t declared = Get64(locator + 8);
      // With bytes before the archive the declared offset is short by their number; the record
      // itself sits right before the locator.
      const uint64_t at = endOffset - kEnd64LocatorSize;
      if (at < kEnd64Size) Corrupt("ZIP64 end record missing");
      uint64_t recordAt = declared;
      unsigned char end64[kEnd64Size];
      if (declared + kEnd64Size > at ||
          (file.Read(end64, sizeof(end64), declared), Get32(end64) != kEnd64Signature)) {
        recordAt = at - kEnd64Size;
        file.Read(end64, sizeof(end64), recordAt);
        if (Get32(end64) != kEnd64Signature) Corrupt("ZIP64 end record missing");
      }
      count = Get64(end64 + 32);
      directorySize = Get64(end64 + 40);
      directoryOffset = Get64(end64 + 48);
      directoryEnd = recordAt;
    }
  }
  if (directorySize > directoryEnd || directoryOffset > directoryEnd - directorySize) {
    Corrupt("central directory lies outside the file");
  }
  const uint64_t shift = directoryEnd - directorySize - directoryOffset;
  const uint64_t directoryStart = directoryOffset + shift;
  if (count > directorySize / kCentralHeaderSize) Corrupt("entry count exceeds the directory");
  if (place != nullptr) {
    place->start = directoryStart;
    place->size = directorySize;
    place->count = count;
    place->shift = shift;
    place->comment.resize(Get16(e + 20));
    file.Read(&place->comment[0], place->comment.size(), endOffset + kEndSize);
  }

  std::vector<unsigned char> directory(static_cast<size_t>(directorySize));
  file.Read(directory.data(), directory.size(), directoryStart);
  std::vector<ZipRecord> records;
  records.reserve(static_cast<size_t>(count));
  size_t at = 0;
  for (uint64_t i = 0; i < count; ++i) {
    if (directory.size() - at < kCentralHeaderSize) Corrupt("central directory is truncated");
    const unsigned char* r = &directory[at];
    if (Get32(r) != kCentralSignature) Corrupt("bad central directory record");
    const size_t nameSize = Get16(r + 28);
    const size_t extraSize = Get16(r + 30);
    const size_t commentSize = Get16(r + 32);
    const size_t recordSize = kCentralHeaderSize + nameSize + extraSize + commentSize;
    if (directory.size() - at < recordSize) Corrupt("central directory is truncated");
    ZipRecord record;
    record.madeBy = Get16(r + 4);
    record.flags = Get16(r + 8);
    record.method = Get16(r + 10);
    const uint32_t dosTime = static_cast<uint32_t>(Get16(r + 14)) << 16 | Get16(r + 12);
    record.crc = Get32(r + 16);
    record.compressedSize = Get32(r + 20);
    record.size = Get32(r + 24);
    record.externalAttributes = Get32(r + 38);
    record.localOffset = Get32(r + 42);
    record.recordOffset = directoryStart + at;
    const std::string rawName(reinterpret_cast<const char*>(r + kCentralHeaderSize), nameSize);
    std::string unicodeName;
    if (!ReadExtraFields(r + kCentralHeaderSize + nameSize, extraSize, rawName, Get32(r + 24),
                         Get32(r + 20), Get32(r + 42), dosTime, record, unicodeName)) {
      record.modifiedSeconds = SecondsFromDosTime(dosTime);
    }
    if ((record.flags & kZipFlagUtf8) || (unicodeName.empty() && IsValidUtf8(rawName))) {
      record.name = rawName;
    } else if (!unicodeName.empty()) {
      record.name = unicodeName;
    } else {
      record.name = FromCodePage437(rawName);
    }
    record.localOffset += shift;
    records.push_back(std::move(record));
    at += recordSize;
  }

  // Entries must not share bytes: overlapping entries are how some zip bombs multiply one
  // compressed block into many outputs.
  std::vector<const ZipRecord*> byOffset;
  byOffset.reserve(records.size());
  for (const ZipRecord& record : records) byOffset.push_back(&record);
  std::sort(byOffset.begin(), byOffset.end(),
            [](const ZipRecord* a, const ZipRecord* b) { return a->localOffset < b->localOffset; });
  for (size_t i = 0; i < byOffset.size(); ++i) {
    const ZipRecord& record = *byOffset[i];
    const uint64_t limit = i + 1 < byOffset.size() ? byOffset[i + 1]->localOffset : directoryStart;
    if (record.localOffset > limit || limit - record.localOffset < kLocalHeaderSize ||
        limit - record.localOffset - kLocalHeaderSize < record.compressedSize) {
      Corrupt("entry \"" + record.name + "\" overlaps the next one or the directory");
    }
  }
  return records;
}

uint64_t LocateEntryData(const ArchiveFile& file, const ZipRecord& record) {
  unsigned char header[kLocalHeaderSize];
  file.Read(header, sizeof(header), record.localOffset);
  if (Get32(header) != kLocalSignature) Corrupt("bad local header for \"" + record.name + "\"");
  const uint64_t data =
      record.localOffset + kLocalHeaderSize + Get16(header + 26) + Get16(header + 28);
  if (data > file.Size() || file.Size() - data < record.compressedSize) {
    Corrupt("data of \"" + record.name + "\" runs past the end of the file");
  }
  return data;
}

std::vector<std::string> SafeNameComponents(const std::string& name) {
  auto refuse = [&](const char* why) -> std::vector<std::string> {
    throw VantuDataException(std::string("Unsafe entry name (") + why + "): \"" + name + "\"");
  };
  if (name.find('\0') != std::string::npos) return refuse("NUL byte");
  if (name.find('\\') != std::string::npos) return refuse("backslash");
  if (!name.empty() && name[0] == '/') return refuse("absolute");
  std::vector<std::string> components;
  size_t start = 0;
  while (start <= name.size()) {
    size_t slash = name.find('/', start);
    if (slash == std::string::npos) slash = name.size();
    std::string part = name.substr(start, slash - start);
    start = slash + 1;
    if (part.empty() || part == ".") continue;
    if (part == "..") return refuse("parent folder");
    if (components.empty() && part.size() >= 2 && part[1] == ':' &&
        ((part[0] >= 'A' && part[0] <= 'Z') || (part[0] >= 'a' && part[0] <= 'z'))) {
      return refuse("drive letter");
    }
    components.push_back(std::move(part));
  }
  if (name.empty()) return refuse("empty");
  return components;
}

bool LinkTargetStaysInside(const std::vector<std::string>& linkComponents,
                           const std::string& target) {
  if (target.empty() || target[0] == '/' || target.find('\\') != std::string::npos ||
      target.find('\0') != std::string::npos) {
    return false;
  }
  // Depth of the folder holding the link, then walk the target's components.
  long depth = static_cast<long>(linkComponents.size()) - 1;
  bool descended = false;
  size_t start = 0;
  while (start <= target.size()) {
    size_t slash = target.find('/', start);
    if (slash == std::string::npos) slash = target.size();
    const std::string part = target.substr(start, slash - start);
    start = slash + 1;
    if (part.empty() || part == ".") continue;
    // ".." after a name would climb out of whatever that name turns out to be (a link to "."
    // made later, say), so only leading ".." components are accepted.
    if (part == ".." && descended) return false;
    descended = descended || part != "..";
    depth += part == ".." ? -1 : 1;
    if (depth < 0) return false;
  }
  return true;
}

uint32_t DosTimeFromSeconds(long long epochSeconds) {
  const Poco::DateTime local(Poco::Timestamp::fromEpochTime(
      static_cast<std::time_t>(epochSeconds + platform::LocalTimeOffset(epochSeconds))));
  if (local.year() < 1980) return (1 << 16) | (1 << 21);  // 1980-01-01 00:00
  if (local.year() > 2107) return 0xFF9FBF7D;             // 2107-12-31 23:59:58
  const uint32_t date =
      static_cast<uint32_t>((local.year() - 1980) << 9 | local.month() << 5 | local.day());
  const uint32_t time =
      static_cast<uint32_t>(local.hour() << 11 | local.minute() << 5 | local.second() / 2);
  return date << 16 | time;
}

long long SecondsFromDosTime(uint32_t dosTime) {
  const int year = 1980 + static_cast<int>(dosTime >> 25);
  const int month = std::clamp(static_cast<int>(dosTime >> 21 & 0xF), 1, 12);
  const int day = std::clamp(static_cast<int>(dosTime >> 16 & 0x1F), 1,
                             Poco::DateTime::daysOfMonth(year, month));
  const int hour = std::min(static_cast<int>(dosTime >> 11 & 0x1F), 23);
  const int minute = std::min(static_cast<int>(dosTime >> 5 & 0x3F), 59);
  const int second = std::min(static_cast<int>(dosTime & 0x1F) * 2, 59);
  // The local time read as UTC, less the zone's offset at (about) that instant.
  const long long asUtc =
      Poco::DateTime(year, month, day, hour, minute, second).timestamp().epochTime();
  return asUtc - platform::LocalTimeOffset(asUtc - platform::LocalTimeOffset(asUtc));
}

std::string ExtendedTimestampField(long long epochSeconds) {
  const auto value =
      static_cast<uint32_t>(std::clamp<long long>(epochSeconds, INT32_MIN, 0xFFFFFFFFLL));
  std::string field("\x55\x54\x05\x00\x01", 5);
  for (int i = 0; i < 4; ++i) field.push_back(static_cast<char>(value >> (8 * i)));
  return field;
}

std::string EndRecords(uint64_t count, uint64_t directorySize, uint64_t directoryOffset,
                       uint64_t at, const std::string& comment) {
  std::string tail;
  auto put = [&tail](uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) tail.push_back(static_cast<char>(value >> (8 * i)));
  };
  if (count >= 0xFFFF || directorySize >= 0xFFFFFFFF || directoryOffset >= 0xFFFFFFFF) {
    put(kEnd64Signature, 4);
    put(kEnd64Size - 12, 8);  // the size of the rest of the record
    put(45, 2);               // made by and needed: version 4.5, the first with ZIP64
    put(45, 2);
    put(0, 8);  // this disk and the directory's disk
    put(count, 8);
    put(count, 8);
    put(directorySize, 8);
    put(directoryOffset, 8);
    put(kEnd64LocatorSignature, 4);
    put(0, 4);
    put(at, 8);
    put(1, 4);  // disks in all
  }
  put(kEndSignature, 4);
  put(0, 4);  // this disk and the directory's disk
  put(std::min<uint64_t>(count, 0xFFFF), 2);
  put(std::min<uint64_t>(count, 0xFFFF), 2);
  put(std::min<uint64_t>(directorySize, 0xFFFFFFFF), 4);
  put(std::min<uint64_t>(directoryOffset, 0xFFFFFFFF), 4);
  put(comment.size(), 2);
  tail += comment;
  return tail;
}

void AddZip64EndRecords(const std::string& path) {
  uint64_t endOffset = 0;
  std::vector<unsigned char> end;  // the end record with its comment
  uint64_t count = 0;
  {
    const ArchiveFile file(path);
    endOffset = FindEndRecord(file);
    end.resize(static_cast<size_t>(file.Size() - endOffset));
    file.Read(end.data(), end.size(), endOffset);
    if (Get16(&end[10]) != 0xFFFF) return;
    unsigned char locator[kEnd64LocatorSize];
    if (endOffset >= kEnd64LocatorSize) {
      file.Read(locator, sizeof(locator), endOffset - kEnd64LocatorSize);
      if (Get32(locator) == kEnd64LocatorSignature) return;
    }
    // The classic record holds 65,535 at most: count the records themselves.
    std::vector<unsigned char> directory(Get32(&end[12]));
    file.Read(directory.data(), directory.size(), Get32(&end[16]));
    for (size_t at = 0; at < directory.size(); ++count) {
      if (directory.size() - at < kCentralHeaderSize ||
          Get32(&directory[at]) != kCentralSignature) {
        Corrupt("bad central directory record");
      }
      at += kCentralHeaderSize + Get16(&directory[at + 28]) + Get16(&directory[at + 30]) +
            Get16(&directory[at + 32]);
    }
  }
  const std::string tail =
      EndRecords(count, Get32(&end[12]), Get32(&end[16]), endOffset,
                 std::string(reinterpret_cast<const char*>(&end[kEndSize]), end.size() - kEndSize));
  std::fstream stream(path, std::ios::in | std::ios::out | std::ios::binary);
  stream.seekp(static_cast<std::streamoff>(endOffset)).write(tail.data(), tail.size());
  stream.close();
  if (!stream) throw VantuIOException("Cannot write the archive \"" + path + "\"");
}

void PatchEntryMethods(const std::string& path, const std::vector<std::string>& names,
                       uint16_t method) {
  if (names.empty()) return;
  std::vector<ZipRecord> records;
  {
    const ArchiveFile file(path);
    records = ReadCentralDirectory(file);
  }
  const std::set<std::string> wanted(names.begin(), names.end());
  std::fstream stream(path, std::ios::in | std::ios::out | std::ios::binary);
  const char bytes[2] = {static_cast<char>(method & 0xFF), static_cast<char>(method >> 8)};
  const char version[2] = {63, 0};  // version needed to extract: 6.3 knows these methods
  for (const ZipRecord& record : records) {
    if (wanted.count(record.name) == 0) continue;
    stream.seekp(static_cast<std::streamoff>(record.localOffset + 4)).write(version, 2);
    stream.seekp(static_cast<std::streamoff>(record.localOffset + 8)).write(bytes, 2);
    stream.seekp(static_cast<std::streamoff>(record.recordOffset + 6)).write(version, 2);
    stream.seekp(static_cast<std::streamoff>(record.recordOffset + 10)).write(bytes, 2);
  }
  stream.close();
  if (!stream) throw VantuIOException("Cannot write the archive \"" + path + "\"");
}

}  // namespace vantu::internal
