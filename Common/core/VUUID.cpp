#include <vantu/VUUID.h>

#include <vantu/VException.h>
#include <vantu/VRandom.h>

#include <chrono>
#include <cstring>
#include <mutex>

#include "internal/Hex.h"
#include "platform/Process.h"

using vantu::internal::HexDigitValue;

namespace {

// Random bytes from the kernel, fetched 4 KiB at a time per thread and dropped in a child
// process after a fork, so that parent and child never hand out the same bytes.
class RandomPool {
 public:
  void Take(uint8_t* out, size_t size) {
    const unsigned long generation = vantu::platform::ForkGeneration();
    if (generation != generation_ || used_ + size > sizeof(bytes_)) {
      VRandom::FillSecure(bytes_, sizeof(bytes_));
      used_ = 0;
      generation_ = generation;
    }
    std::memcpy(out, bytes_ + used_, size);
    std::memset(bytes_ + used_, 0, size);
    used_ += size;
  }

 private:
  uint8_t bytes_[4096];
  size_t used_ = sizeof(bytes_);
  unsigned long generation_ = 0;
};

thread_local RandomPool t_pool;

void SetVersionAndVariant(uint8_t* bytes, int version) {
  bytes[6] = static_cast<uint8_t>((bytes[6] & 0x0F) | (version << 4));
  bytes[8] = static_cast<uint8_t>((bytes[8] & 0x3F) | 0x80);
}

// The last v7 id's time and counter, shared by the process's threads.
struct V7State {
  std::mutex mutex;
  uint64_t millis = 0;
  uint64_t counter = 0;
};

V7State& SharedV7State() {
  static V7State state;
  return state;
}

constexpr int kCounterBits = 42;  // 12 bits after the version, 30 after the variant
constexpr uint64_t kCounterMax = (uint64_t{1} << kCounterBits) - 1;

}  // namespace

VUUID::VUUID() { std::memset(bytes_, 0, sizeof(bytes_)); }
VUUID::VUUID(const uint8_t bytes[16]) { std::memcpy(bytes_, bytes, sizeof(bytes_)); }
VUUID::VUUID(const VUUID& other) : VBaseObject(other) {
  std::memcpy(bytes_, other.bytes_, sizeof(bytes_));
}
VUUID& VUUID::operator=(const VUUID& other) {
  if (this != &other) Clone(other);
  return *this;
}
VUUID::~VUUID() = default;

void VUUID::Clone(const VBaseObject& other) {
  if (const auto* id = dynamic_cast<const VUUID*>(&other)) {
    std::memcpy(bytes_, id->bytes_, sizeof(bytes_));
  }
}

VUUID VUUID::NewV4() {
  VUUID id;
  t_pool.Take(id.bytes_, sizeof(id.bytes_));
  SetVersionAndVariant(id.bytes_, 4);
  return id;
}

VUUID VUUID::NewV7() {
  uint8_t random[10];
  t_pool.Take(random, sizeof(random));
  uint64_t start = 0;
  std::memcpy(&start, random, 5);
  start &= (uint64_t{1} << (kCounterBits - 1)) - 1;  // the top bit stays clear: room to count
  const auto now = std::chrono::duration_cast<std::chrono::milliseconds>(
                       std::chrono::system_clock::now().time_since_epoch())
                       .count();
  uint64_t millis = now > 0 ? static_cast<uint64_t>(now) : 0;
  uint64_t counter;
  {
    V7State& state = SharedV7State();
    std::lock_guard<std::mutex> lock(state.mutex);
    if (millis > state.millis) {
      counter = start;
    } else if (state.counter < kCounterMax) {
      millis = state.millis;  // same millisecond, or the clock stepped back
      counter = state.counter + 1;
    } else {
      millis = state.millis + 1;  // the counter ran out: borrow the next millisecond
      counter = start;
    }
    state.millis = millis;
    state.counter = counter;
  }
  VUUID id;
  for (int i = 0; i < 6; ++i) id.bytes_[i] = static_cast<uint8_t>(millis >> (40 - 8 * i));
  const uint64_t high = counter >> 30;  // 12 bits
  const uint64_t low = counter & ((uint64_t{1} << 30) - 1);
  id.bytes_[6] = static_cast<uint8_t>(high >> 8);
  id.bytes_[7] = static_cast<uint8_t>(high);
  id.bytes_[8] = static_cast<uint8_t>(low >> 24);
  id.bytes_[9] = static_cast<uint8_t>(low >> 16);
  id.bytes_[10] = static_cast<uint8_t>(low >> 8);
  id.bytes_[11] = static_cast<uint8_t>(low);
  std::memcpy(id.bytes_ + 12, random + 5, 4);
  SetVersionAndVariant(id.bytes_, 7);
  return id;
}

VUUID VUUID::Null() { return VUUID(); }

VUUID VUUID::Parse(const VString& text) {
  VString copy(text);
  copy.ConvertTo(UTF8);
  const std::string& bytes = copy.GetString();
  if (bytes.size() != 36) {
    throw VantuSyntaxException("Not a UUID (36 characters expected): \"" + bytes + "\"");
  }
  VUUID id;
  size_t out = 0;
  for (size_t i = 0; i < 36; ++i) {
    const bool hyphen = i == 8 || i == 13 || i == 18 || i == 23;
    if (hyphen) {
      if (bytes[i] != '-') throw VantuSyntaxException("Not a UUID: \"" + bytes + "\"");
      continue;
    }
    const int high = HexDigitValue(bytes[i]);
    const int low = HexDigitValue(bytes[i + 1]);
    if (high < 0 || low < 0) throw VantuSyntaxException("Not a UUID: \"" + bytes + "\"");
    id.bytes_[out++] = static_cast<uint8_t>(high << 4 | low);
    ++i;
  }
  return id;
}

VUUID VUUID::Parse(const std::string& text) { return Parse(VString(text, UTF8)); }
VUUID VUUID::Parse(const char* text) { return Parse(VString(text, UTF8)); }
VUUID VUUID::Parse(const char* text, StringEncoding encoding) {
  return Parse(VString(text, encoding));
}

VString VUUID::ToString() const {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(36);
  for (int i = 0; i < 16; ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text.push_back('-');
    text.push_back(kDigits[bytes_[i] >> 4]);
    text.push_back(kDigits[bytes_[i] & 0x0F]);
  }
  return VString(text, UTF8);
}

bool VUUID::IsNull() const {
  for (uint8_t byte : bytes_) {
    if (byte != 0) return false;
  }
  return true;
}

int VUUID::Compare(const VUUID& other) const {
  return std::memcmp(bytes_, other.bytes_, sizeof(bytes_));
}

size_t VUUID::Hash() const {
  uint64_t a;
  uint64_t b;
  std::memcpy(&a, bytes_, 8);
  std::memcpy(&b, bytes_ + 8, 8);
  // The bytes are mostly random already; the multiply mixes the time-ordered v7 prefix too.
  return static_cast<size_t>((a ^ (b * 0x9E3779B97F4A7C15ULL)) * 0xBF58476D1CE4E5B9ULL);
}
