#include <vantu/VDateTimeFormatter.h>

VDateTimeFormatter& VDateTimeFormatter::operator=(const VDateTimeFormatter&) { return *this; }

VDateTimeFormatter& VDateTimeFormatter::operator=(VDateTimeFormatter&&) noexcept { return *this; }
