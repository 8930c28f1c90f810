// Turns the platform layer's std::system_error into the library's file exceptions, for the zip
// classes.
#ifndef VANTU_ZIP_INTERNAL_ZIPERRORS_H
#define VANTU_ZIP_INTERNAL_ZIPERRORS_H

#include <string>
#include <system_error>

namespace vantu::internal {

// Throws the member of the VException family that matches the error's errno value
// (VantuFileNotFoundException, VantuFileAccessDeniedException, VantuFileExistsException,
// VantuFileReadOnlyException, else VantuIOException), with `what` and the system's text.
[[noreturn]] void ThrowFileError(const std::system_error& error, const std::string& what);

}  // namespace vantu::internal

#endif  // VANTU_ZIP_INTERNAL_ZIPERRORS_H
