#include <vantu/VChecksum.h>

#include "internal/Crc32.h"

struct VChecksum::State {
  uint32_t crc = 0;
};

VChecksum::VChecksum() : state_(std::make_unique<State>()) {}

VChecksum::VChecksum(const VChecksum& other) : state_(std::make_unique<State>(*other.state_)) {}

VChecksum& VChecksum::operator=(const VChecksum& other) {
  if (this != &other) *state_ = *other.state_;
  return *this;
}

VChecksum::~VChecksum() = default;

void VChecksum::Update(const void* data, size_t size) {
  state_->crc = vantu::internal::Crc32(state_->crc, data, size);
}

uint32_t VChecksum::Checksum() const { return state_->crc; }
