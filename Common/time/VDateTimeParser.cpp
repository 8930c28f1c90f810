#include <vantu/VDateTimeParser.h>

VDateTimeParser& VDateTimeParser::operator=(const VDateTimeParser&) { return *this; }

VDateTimeParser& VDateTimeParser::operator=(VDateTimeParser&&) noexcept { return *this; }
