#include <vantu/VTimestamp.h>

#include <Poco/Timestamp.h>

#include <cstdint>

namespace {

constexpr long long kGregorianOffsetMicroseconds = 12219292800000000LL;

// Two's complement arithmetic without signed overflow.
long long Wrap(uint64_t value) { return static_cast<long long>(value); }
long long Add(long long a, long long b) {
  return Wrap(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}
long long Subtract(long long a, long long b) {
  return Wrap(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

long long Now() { return Poco::Timestamp().epochMicroseconds(); }

}  // namespace

VTimestamp::VTimestamp() : value_(Now()) {}
VTimestamp::VTimestamp(long long microseconds) : value_(microseconds) {}
VTimestamp::VTimestamp(const VTimestamp& other) = default;
VTimestamp::~VTimestamp() = default;

VTimestamp VTimestamp::FromUtcTime(long long utc) {
  return VTimestamp(Subtract(utc, 10 * kGregorianOffsetMicroseconds) / 10);
}

VTimestamp& VTimestamp::operator=(const VTimestamp& other) {
  value_ = other.value_;
  return *this;
}

VTimestamp& VTimestamp::operator=(long long microseconds) {
  value_ = microseconds;
  return *this;
}

VTimestamp VTimestamp::operator+(long long microseconds) const {
  return VTimestamp(Add(value_, microseconds));
}

VTimestamp VTimestamp::operator-(long long microseconds) const {
  return VTimestamp(Subtract(value_, microseconds));
}

long long VTimestamp::operator-(const VTimestamp& other) const {
  return Subtract(value_, other.value_);
}

VTimestamp& VTimestamp::operator+=(long long microseconds) {
  value_ = Add(value_, microseconds);
  return *this;
}

VTimestamp& VTimestamp::operator-=(long long microseconds) {
  value_ = Subtract(value_, microseconds);
  return *this;
}

long long VTimestamp::EpochTime() const { return value_ / Resolution(); }

long long VTimestamp::UtcTime() const {
  return Wrap(static_cast<uint64_t>(Add(value_, kGregorianOffsetMicroseconds)) * 10u);
}

long long VTimestamp::Elapsed() const { return Subtract(Now(), value_); }

bool VTimestamp::IsElapsed(long long interval) const { return Elapsed() >= interval; }

long long VTimestamp::Resolution() { return 1000000; }
