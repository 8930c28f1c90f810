#include "net/internal/ReceiveBuffer.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "platform/AddressRange.h"

namespace vantu::internal {
namespace {

using vantu::platform::kRangeAlignment;

// Capacities up to this stay on the heap, where realloc serves small steps well.
constexpr uint64_t kHeapLimit = uint64_t{256} << 10;
// The first address range reserved; each later one doubles until the storage fits.
constexpr uint64_t kFirstReservation = uint64_t{64} << 20;

uint64_t RoundUp(uint64_t value, uint64_t unit) { return (value + unit - 1) / unit * unit; }

uint64_t FirstCapacity(uint64_t n) { return (n / ReceiveBuffer::kStep + 1) * ReceiveBuffer::kStep; }

// The accessible part of a range for a capacity: whole pages, and whole huge pages from 2 MiB
// on, so that the kernel can back a large buffer with huge pages.
uint64_t Accessible(uint64_t capacity) {
  return RoundUp(capacity,
                 capacity < kRangeAlignment ? vantu::platform::PageSize() : kRangeAlignment);
}

// The reservation for `accessible` bytes; 0 where no reservation could be that large.
uint64_t ReservationFor(uint64_t accessible) {
  uint64_t size = kFirstReservation;
  while (size < accessible) {
    if (size > (uint64_t{1} << 62)) return 0;
    size *= 2;
  }
  return size;
}

}  // namespace

ReceiveBuffer::ReceiveBuffer(uint64_t capacityLimit) : limit_(capacityLimit) {}

ReceiveBuffer::ReceiveBuffer(const ReceiveBuffer& other) : limit_(other.limit_) {
  if (other.data_ == nullptr) return;
  if (!Allocate(other.capacity_)) throw std::bad_alloc();
  std::memcpy(data_, other.data_, other.length_);
  length_ = other.length_;
}

ReceiveBuffer& ReceiveBuffer::operator=(const ReceiveBuffer& other) {
  if (this != &other) {
    ReceiveBuffer copy(other);
    Swap(copy);
  }
  return *this;
}

ReceiveBuffer::ReceiveBuffer(ReceiveBuffer&& other) noexcept : limit_(other.limit_) { Swap(other); }

ReceiveBuffer& ReceiveBuffer::operator=(ReceiveBuffer&& other) noexcept {
  Swap(other);  // the other's destructor releases what this held
  return *this;
}

ReceiveBuffer::~ReceiveBuffer() { Release(); }

bool ReceiveBuffer::Append(const char* bytes, size_t n) {
  if (data_ == nullptr) {
    if (!Allocate(FirstCapacity(n))) return false;
  } else if (capacity_ - length_ < n) {
    if (!Grow(((capacity_ + n) / kStep + 1) * kStep)) {
      Release();  // the held bytes are lost
      if (!Allocate(FirstCapacity(n))) return false;
    }
  }
  std::memcpy(data_ + length_, bytes, n);
  length_ += n;
  return true;
}

bool ReceiveBuffer::Allocate(uint64_t capacity) {
  if (capacity > limit_) return false;
  if (capacity <= kHeapLimit) {
    data_ = static_cast<char*>(std::malloc(capacity));
    if (data_ == nullptr) return false;
    reserved_ = 0;
  } else {
    const uint64_t accessible = Accessible(capacity);
    const uint64_t reservation = ReservationFor(accessible);
    void* range = reservation != 0 ? vantu::platform::ReserveRange(reservation) : nullptr;
    if (range == nullptr) return false;
    if (!vantu::platform::CommitRange(range, accessible)) {
      vantu::platform::ReleaseRange(range, reservation);
      return false;
    }
    data_ = static_cast<char*>(range);
    reserved_ = reservation;
  }
  capacity_ = capacity;
  length_ = 0;
  return true;
}

bool ReceiveBuffer::Grow(uint64_t capacity) {
  if (capacity > limit_) return false;
  if (reserved_ != 0) return GrowRange(capacity);
  if (capacity <= kHeapLimit) {
    void* larger = std::realloc(data_, capacity);
    if (larger == nullptr) return false;
    data_ = static_cast<char*>(larger);
    capacity_ = capacity;
    return true;
  }
  // Leaving the heap for an address range: the one copy, of at most kHeapLimit bytes.
  char* const heap = data_;
  const uint64_t held = length_;
  const uint64_t heapCapacity = capacity_;
  if (!Allocate(capacity)) {
    data_ = heap;
    capacity_ = heapCapacity;
    return false;
  }
  std::memcpy(data_, heap, held);
  length_ = held;
  std::free(heap);
  return true;
}

bool ReceiveBuffer::GrowRange(uint64_t capacity) {
  const uint64_t have = Accessible(capacity_);
  const uint64_t need = Accessible(capacity);
  if (need > reserved_) {
    const uint64_t reservation = ReservationFor(need);
    void* range = reservation != 0 ? vantu::platform::ReserveRange(reservation) : nullptr;
    if (range == nullptr) return false;
    if (!vantu::platform::MoveRange(data_, range, have)) {
      vantu::platform::ReleaseRange(range, reservation);
      return false;
    }
    vantu::platform::ReleaseRange(data_ + have, reserved_ - have);
    data_ = static_cast<char*>(range);
    reserved_ = reservation;
  }
  if (need > have && !vantu::platform::CommitRange(data_ + have, need - have)) return false;
  capacity_ = capacity;
  return true;
}

void ReceiveBuffer::Release() {
  if (reserved_ != 0) {
    vantu::platform::ReleaseRange(data_, reserved_);
  } else {
    std::free(data_);
  }
  data_ = nullptr;
  length_ = 0;
  capacity_ = 0;
  reserved_ = 0;
}

void ReceiveBuffer::Swap(ReceiveBuffer& other) noexcept {
  std::swap(data_, other.data_);
  std::swap(length_, other.length_);
  std::swap(capacity_, other.capacity_);
  std::swap(reserved_, other.reserved_);
  std::swap(limit_, other.limit_);
}

}  // namespace vantu::internal
