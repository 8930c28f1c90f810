#include <vantu/VChecksum.h>

#include <Poco/Checksum.h>

#include <algorithm>

struct VChecksum::State {
  Poco::Checksum crc{Poco::Checksum::TYPE_CRC32};
};

VChecksum::VChecksum() : state_(std::make_unique<State>()) {}

VChecksum::VChecksum(const VChecksum& other) : state_(std::make_unique<State>(*other.state_)) {}

VChecksum& VChecksum::operator=(const VChecksum& other) {
  if (this != &other) *state_ = *other.state_;
  return *this;
}

VChecksum::~VChecksum() = default;

void VChecksum::Update(const void* data, size_t size) {
  // Poco::Checksum takes 32-bit lengths.
  const char* bytes = static_cast<const char*>(data);
  while (size > 0) {
    const size_t chunk = std::min<size_t>(size, 1u << 30);
    state_->crc.update(bytes, static_cast<unsigned>(chunk));
    bytes += chunk;
    size -= chunk;
  }
}

uint32_t VChecksum::Checksum() const { return state_->crc.checksum(); }
