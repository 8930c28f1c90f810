// VDateTimeParser: a reserved class of the date/time interface. It holds no data and has no
// operation beyond assignment, which does nothing; it is kept so that programs built against the
// library's interface find it. Date and time parsing lives elsewhere: VDateTime carries the
// calendar fields.
#ifndef VANTU_VDATETIMEPARSER_H
#define VANTU_VDATETIMEPARSER_H

#include <vantu/Export.h>

class VANTU_API VDateTimeParser {
 public:
  VDateTimeParser() = default;
  VDateTimeParser(const VDateTimeParser&) = default;
  VDateTimeParser(VDateTimeParser&&) = default;
  ~VDateTimeParser() = default;
  // Does nothing; returns this object.
  VDateTimeParser& operator=(const VDateTimeParser& other);
  VDateTimeParser& operator=(VDateTimeParser&& other) noexcept;
};

#endif  // VANTU_VDATETIMEPARSER_H
