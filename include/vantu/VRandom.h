// VRandom: a fast pseudo-random generator seeded from the operating system, and the kernel's
// cryptographic generator for keys and tokens.
//
// The generator is xoshiro256** (256 bits of state, period 2^256 - 1), seeded from the kernel's
// random source when constructed; Seed() makes a sequence repeatable. Its numbers are fast and
// statistically good but predictable from past output: use FillSecure, never Next, for keys,
// tokens and anything an attacker must not guess.
//
// Next(n) is uniform over [0, n) without modulo bias; Next(0) throws
// VantuInvalidArgumentException. The constructor and FillSecure throw VantuRuntimeException
// when the kernel gives no random bytes (it waits for the kernel's generator to be seeded at
// boot). Copies continue the same sequence independently. A generator seeded from the kernel
// reseeds itself from the kernel in a forked child (at its first draw there), so parent and child
// never draw the same numbers; one seeded with Seed() or VRandom(seed) continues its sequence in
// the child, as repeatable as in the parent.
//
// Thread safety: none inside; one object per thread (FillSecure may be called from any thread).
//
//   VRandom random;
//   int die = 1 + static_cast<int>(random.Next(6));
//   unsigned char key[32];
//   VRandom::FillSecure(key, sizeof(key));
#ifndef VANTU_VRANDOM_H
#define VANTU_VRANDOM_H

#include <cstddef>
#include <cstdint>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>

class VANTU_API VRandom : public VBaseObject {
 public:
  // Seeded from the kernel.
  VRandom();
  // Seeded from `seed`: the same seed gives the same sequence on every platform.
  explicit VRandom(uint64_t seed);
  VRandom(const VRandom& other);
  VRandom& operator=(const VRandom& other);
  // Slot 1.
  ~VRandom() override;
  // Slot 2: copies another VRandom's state; does nothing for another class.
  void Clone(const VBaseObject& other) override;

  void Seed(uint64_t seed);

  // 32 random bits.
  uint32_t Next();
  // Uniform in [0, n), without modulo bias.
  uint32_t Next(uint32_t n);
  // 64 random bits.
  uint64_t Next64();
  // Uniform in [0, 1), with 53 random bits.
  double NextDouble();
  // Fills `size` bytes with generator output.
  void NextBytes(void* buffer, size_t size);

  // Fills `size` bytes straight from the kernel's cryptographic generator (getrandom on Linux).
  static void FillSecure(void* buffer, size_t size);

 private:
  static constexpr unsigned long kCallerSeeded = ~0ul;

  void SeedFromKernel();

  uint64_t state_[4];
  // The process's fork generation when the kernel seeded the state, or kCallerSeeded.
  unsigned long forkGeneration_ = kCallerSeeded;
};

#endif  // VANTU_VRANDOM_H
