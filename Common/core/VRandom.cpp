#include <vantu/VRandom.h>

#include <vantu/VException.h>

#include <cstring>
#include <system_error>

#include "platform/Process.h"
#include "platform/Random.h"

namespace {

uint64_t RotateLeft(uint64_t x, int k) { return (x << k) | (x >> (64 - k)); }

// SplitMix64: spreads a 64-bit seed over the generator's state, never all zero.
uint64_t SplitMix(uint64_t& x) {
  uint64_t z = (x += 0x9E3779B97F4A7C15ULL);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
  return z ^ (z >> 31);
}

}  // namespace

VRandom::VRandom() { SeedFromKernel(); }

VRandom::VRandom(uint64_t seed) { Seed(seed); }

VRandom::VRandom(const VRandom& other)
    : VBaseObject(other), forkGeneration_(other.forkGeneration_) {
  std::memcpy(state_, other.state_, sizeof(state_));
}

VRandom& VRandom::operator=(const VRandom& other) {
  if (this != &other) Clone(other);
  return *this;
}

VRandom::~VRandom() = default;

void VRandom::Clone(const VBaseObject& other) {
  if (const auto* random = dynamic_cast<const VRandom*>(&other)) {
    std::memcpy(state_, random->state_, sizeof(state_));
    forkGeneration_ = random->forkGeneration_;
  }
}

void VRandom::Seed(uint64_t seed) {
  for (uint64_t& word : state_) word = SplitMix(seed);
  forkGeneration_ = kCallerSeeded;
}

void VRandom::SeedFromKernel() {
  uint64_t seed;
  FillSecure(&seed, sizeof(seed));
  Seed(seed);
  forkGeneration_ = vantu::platform::ForkGeneration();
}

uint64_t VRandom::Next64() {
  // A process forked since the kernel seeded this generator draws afresh, never its parent's
  // numbers; a generator seeded by the caller keeps its sequence.
  if (forkGeneration_ != kCallerSeeded && forkGeneration_ != vantu::platform::ForkGeneration()) {
    SeedFromKernel();
  }
  const uint64_t result = RotateLeft(state_[1] * 5, 7) * 9;
  const uint64_t t = state_[1] << 17;
  state_[2] ^= state_[0];
  state_[3] ^= state_[1];
  state_[1] ^= state_[2];
  state_[0] ^= state_[3];
  state_[2] ^= t;
  state_[3] = RotateLeft(state_[3], 45);
  return result;
}

uint32_t VRandom::Next() { return static_cast<uint32_t>(Next64() >> 32); }

uint32_t VRandom::Next(uint32_t n) {
  if (n == 0) throw VantuInvalidArgumentException("VRandom::Next(n) needs n > 0");
  // Multiply-and-shift maps 32 random bits onto [0, n); the products whose low half falls
  // below 2^32 mod n are drawn again, which leaves every result exactly equally likely.
  uint64_t product = uint64_t{Next()} * n;
  auto low = static_cast<uint32_t>(product);
  if (low < n) {
    const uint32_t threshold = static_cast<uint32_t>(-n) % n;
    while (low < threshold) {
      product = uint64_t{Next()} * n;
      low = static_cast<uint32_t>(product);
    }
  }
  return static_cast<uint32_t>(product >> 32);
}

double VRandom::NextDouble() { return static_cast<double>(Next64() >> 11) * 0x1.0p-53; }

void VRandom::NextBytes(void* buffer, size_t size) {
  auto* out = static_cast<unsigned char*>(buffer);
  while (size >= 8) {
    const uint64_t word = Next64();
    std::memcpy(out, &word, 8);
    out += 8;
    size -= 8;
  }
  if (size > 0) {
    const uint64_t word = Next64();
    std::memcpy(out, &word, size);
  }
}

void VRandom::FillSecure(void* buffer, size_t size) {
  try {
    vantu::platform::FillRandom(buffer, size);
  } catch (const std::system_error& error) {
    throw VantuRuntimeException(std::string("No random bytes from the kernel: ") + error.what());
  }
}
