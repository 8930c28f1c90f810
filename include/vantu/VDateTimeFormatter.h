// VDateTimeFormatter: a reserved class of the date/time interface. It holds no data and has no
// operation beyond assignment, which does nothing; it is kept so that programs built against the
// library's interface find it. Date and time formatting lives elsewhere: VDateTime carries the
// calendar fields.
#ifndef VANTU_VDATETIMEFORMATTER_H
#define VANTU_VDATETIMEFORMATTER_H

#include <vantu/Export.h>

class VANTU_API VDateTimeFormatter {
 public:
  VDateTimeFormatter() = default;
  VDateTimeFormatter(const VDateTimeFormatter&) = default;
  VDateTimeFormatter(VDateTimeFormatter&&) = default;
  ~VDateTimeFormatter() = default;
  // Does nothing; returns this object.
  VDateTimeFormatter& operator=(const VDateTimeFormatter& other);
  VDateTimeFormatter& operator=(VDateTimeFormatter&& other) noexcept;
};

#endif  // VANTU_VDATETIMEFORMATTER_H
