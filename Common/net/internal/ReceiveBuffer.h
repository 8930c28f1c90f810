// The bytes a memory transfer receives, and the rule by which their storage grows.
#ifndef VANTU_NET_INTERNAL_RECEIVEBUFFER_H
#define VANTU_NET_INTERNAL_RECEIVEBUFFER_H

#include <cstddef>
#include <cstdint>
#include <limits>

namespace vantu::internal {

// A byte buffer whose capacity grows in steps of 10240 bytes, as a download reports it:
//   - the first n bytes give capacity (n / 10240 + 1) * 10240;
//   - n more bytes that do not fit give capacity ((capacity + n) / 10240 + 1) * 10240;
//   - when that growth fails, the held bytes are dropped and the n bytes go alone into a fresh
//     capacity of (n / 10240 + 1) * 10240.
// Storage holds at least the capacity. Growth does not copy the held bytes each time: up to
// 256 KiB they live on the heap (realloc), beyond that in an address range reserved once and made
// accessible as the capacity grows, which moves (its pages, not their bytes) only when the
// reservation has to double.
// Copies are deep. Not thread-safe.
class ReceiveBuffer {
 public:
  static constexpr uint64_t kStep = 10240;

  // `capacityLimit`: the largest capacity storage may take; growing past it fails as a refused
  // allocation does (tests use it to reach that path).
  explicit ReceiveBuffer(uint64_t capacityLimit = std::numeric_limits<uint64_t>::max());
  // Throws std::bad_alloc when no storage can be had for the copy.
  ReceiveBuffer(const ReceiveBuffer& other);
  ReceiveBuffer& operator=(const ReceiveBuffer& other);
  ReceiveBuffer(ReceiveBuffer&& other) noexcept;
  ReceiveBuffer& operator=(ReceiveBuffer&& other) noexcept;
  ~ReceiveBuffer();

  // Null until the first bytes arrive.
  const char* Data() const { return data_; }
  uint64_t Length() const { return length_; }
  uint64_t Capacity() const { return capacity_; }

  // Forgets the held bytes and keeps the storage and its capacity.
  void Clear() { length_ = 0; }
  // Appends n > 0 bytes, growing by the rule above. False when not even the fallback storage
  // could be had; the buffer is then empty, without storage.
  bool Append(const char* bytes, size_t n);

 private:
  // Fresh storage of `capacity` bytes, holding nothing; false (and no storage) on failure.
  bool Allocate(uint64_t capacity);
  // Grows storage to `capacity`, keeping the held bytes; false (storage unchanged) on failure.
  bool Grow(uint64_t capacity);
  bool GrowRange(uint64_t capacity);
  void Release();
  void Swap(ReceiveBuffer& other) noexcept;

  char* data_ = nullptr;
  uint64_t length_ = 0;
  uint64_t capacity_ = 0;
  uint64_t reserved_ = 0;  // bytes of address space reserved at data_; 0 for heap storage
  uint64_t limit_;
};

}  // namespace vantu::internal

#endif  // VANTU_NET_INTERNAL_RECEIVEBUFFER_H
