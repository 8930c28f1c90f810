#include <vantu/VFileStream.h>

#include <Poco/FileStream.h>

#include "internal/PathText.h"

VFileStream::VFileStream() = default;

VFileStream::VFileStream(const VPath& path, std::ios::openmode mode)
    : buffer_(new Poco::FileStreamBuf) {
  try {
    buffer_->open(vantu::internal::PathBytes(path), mode);
  } catch (...) {
    delete buffer_;
    buffer_ = nullptr;
  }
}

VFileStream::VFileStream(const VFileStream& other) : VBaseObject(other) {}

VFileStream& VFileStream::operator=(const VFileStream&) { return *this; }

VFileStream::~VFileStream() {
  if (buffer_ != nullptr) {
    try {
      buffer_->close();
    } catch (...) {
    }
    delete buffer_;
    buffer_ = nullptr;
  }
}

bool VFileStream::IsOpen() const { return buffer_ != nullptr; }

std::streambuf* VFileStream::GetBuffer() const { return buffer_; }

bool VFileStream::Close() {
  if (buffer_ == nullptr) return false;
  bool closed = false;
  try {
    closed = buffer_->close();
  } catch (...) {
  }
  delete buffer_;
  buffer_ = nullptr;
  return closed;
}
