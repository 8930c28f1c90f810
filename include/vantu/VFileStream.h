// VFileStream: owns an open file stream buffer (a Poco::FileStreamBuf) and closes it.
//
// A stream built from a path opens the file with the given mode; IsOpen tells whether that
// worked, and GetBuffer gives the buffer for a std::istream or std::ostream to use. The buffer
// has one owner: a copy of a VFileStream owns no buffer. The destructor closes the buffer and
// deletes it. Nothing throws but std::bad_alloc.
//
// Thread safety: none inside; one object per thread.
#ifndef VANTU_VFILESTREAM_H
#define VANTU_VFILESTREAM_H

#include <ios>
#include <streambuf>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>
#include <vantu/VPath.h>

namespace Poco {
class FileStreamBuf;
}

class VANTU_API VFileStream : public VBaseObject {
 public:
  // No buffer.
  VFileStream();
  VFileStream(const VPath& path, std::ios::openmode mode);
  // The copy owns no buffer.
  VFileStream(const VFileStream& other);
  VFileStream& operator=(const VFileStream& other);
  ~VFileStream() override;

  bool IsOpen() const;
  // The open buffer, or null.
  std::streambuf* GetBuffer() const;
  // Flushes and closes the buffer; true when that succeeded.
  bool Close();

 private:
  Poco::FileStreamBuf* buffer_ = nullptr;
};

#endif  // VANTU_VFILESTREAM_H
