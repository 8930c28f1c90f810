#include "zip/internal/ZipErrors.h"

#include <vantu/VException.h>

namespace vantu::internal {

void ThrowFileError(const std::system_error& error, const std::string& what) {
  const std::string message = what + ": " + error.code().message();
  const std::error_condition condition = error.code().default_error_condition();
  if (condition == std::errc::no_such_file_or_directory) throw VantuFileNotFoundException(message);
  if (condition == std::errc::permission_denied ||
      condition == std::errc::operation_not_permitted) {
    throw VantuFileAccessDeniedException(message);
  }
  if (condition == std::errc::file_exists) throw VantuFileExistsException(message);
  if (condition == std::errc::read_only_file_system) throw VantuFileReadOnlyException(message);
  throw VantuIOException(message);
}

}  // namespace vantu::internal
