// VDateTime: an instant with its calendar fields, in UTC and the proleptic Gregorian calendar.
//
// A value type built from a VTimestamp (or now): the time field holds the epoch microseconds and
// every calendar field is computed from it, also before 1970 and far beyond 2038 (the whole
// range of VTimestamp; years before 1 are astronomical: 0 is 1 BC). Comparisons look at the time
// field only. Nothing throws.
//
// Thread safety: a value without locks.
#ifndef VANTU_VDATETIME_H
#define VANTU_VDATETIME_H

#include <cstdint>

#include <vantu/Export.h>
#include <vantu/VBaseObject.h>
#include <vantu/VTimestamp.h>

class VANTU_API VDateTime : public VBaseObject {
 public:
  // Now.
  VDateTime();
  explicit VDateTime(const VTimestamp& timestamp);
  VDateTime(const VDateTime& other);
  VDateTime& operator=(const VDateTime& other);
  ~VDateTime() override;

  int Year() const { return year_; }
  int Month() const { return month_; }  // 1 to 12
  int Day() const { return day_; }      // 1 to 31
  int Hour() const { return hour_; }    // 0 to 23
  int Minute() const { return minute_; }
  int Second() const { return second_; }
  int Millisecond() const { return millisecond_; }
  int Microsecond() const { return microsecond_; }  // 0 to 999, beyond the millisecond
  // 12 for hours 0 and 12, the hour up to 12, hour - 12 from 13 on.
  int HourAMPM() const;
  bool IsAM() const { return hour_ < 12; }
  bool IsPM() const { return hour_ >= 12; }

  // Gregorian rule: divisible by 4, and not by 100 unless by 400 (-4 is a leap year).
  static bool IsLeapYear(int year);
  // 100-nanosecond units since 1582-10-15 00:00:00 UTC.
  long long UtcTime() const;
  // The instant as a VTimestamp: the stored epoch microseconds, over the whole range.
  VTimestamp Timestamp() const;

  bool operator==(const VDateTime& other) const { return time_ == other.time_; }
  bool operator!=(const VDateTime& other) const { return time_ != other.time_; }
  bool operator<(const VDateTime& other) const { return time_ < other.time_; }
  bool operator<=(const VDateTime& other) const { return time_ <= other.time_; }
  bool operator>(const VDateTime& other) const { return time_ > other.time_; }
  bool operator>=(const VDateTime& other) const { return time_ >= other.time_; }

 private:
  void Compute();

  [[maybe_unused]] uint64_t reserved_ = 0;  // unread
  long long time_ = 0;                      // epoch microseconds
  int32_t year_ = 1970;
  int32_t month_ = 1;
  int32_t day_ = 1;
  int32_t hour_ = 0;
  int32_t minute_ = 0;
  int32_t second_ = 0;
  int32_t millisecond_ = 0;
  int32_t microsecond_ = 0;
};

#endif  // VANTU_VDATETIME_H
