// VTimestamp: a point in time as signed 64-bit microseconds since the Unix epoch
// (1970-01-01 00:00:00 UTC).
//
// A value type. Arithmetic wraps on overflow (two's complement) instead of failing. "UTC time"
// here means 100-nanosecond units since the start of the Gregorian calendar,
// 1582-10-15 00:00:00 UTC (the base of UUID time). Nothing throws.
//
// Thread safety: a value without locks; reading the clock is safe from any thread.
#ifndef VANTU_VTIMESTAMP_H
#define VANTU_VTIMESTAMP_H

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>

class VANTU_API VTimestamp : public VBaseObject {
 public:
  // Now.
  VTimestamp();
  explicit VTimestamp(long long microseconds);
  VTimestamp(const VTimestamp& other);
  // From a UTC time: (utc - 122192928000000000) / 10, rounded toward zero.
  static VTimestamp FromUtcTime(long long utc);
  ~VTimestamp() override;

  VTimestamp& operator=(const VTimestamp& other);
  VTimestamp& operator=(long long microseconds);

  bool operator==(const VTimestamp& other) const { return value_ == other.value_; }
  bool operator!=(const VTimestamp& other) const { return value_ != other.value_; }
  bool operator<(const VTimestamp& other) const { return value_ < other.value_; }
  bool operator<=(const VTimestamp& other) const { return value_ <= other.value_; }
  bool operator>(const VTimestamp& other) const { return value_ > other.value_; }
  bool operator>=(const VTimestamp& other) const { return value_ >= other.value_; }

  VTimestamp operator+(long long microseconds) const;
  VTimestamp operator-(long long microseconds) const;
  // The difference in microseconds (wrapping).
  long long operator-(const VTimestamp& other) const;
  VTimestamp& operator+=(long long microseconds);
  VTimestamp& operator-=(long long microseconds);

  long long EpochMicroseconds() const { return value_; }
  // Whole seconds, rounded toward zero.
  long long EpochTime() const;
  // (microseconds + 12219292800000000) * 10.
  long long UtcTime() const;
  // Microseconds from this point to now.
  long long Elapsed() const;
  // Whether at least `interval` microseconds have passed since this point.
  bool IsElapsed(long long interval) const;
  // Units per second: 1000000.
  static long long Resolution();

 private:
  long long value_;
};

#endif  // VANTU_VTIMESTAMP_H
