// Translation of the file-system layer's exceptions into the library's own.
#ifndef VANTU_INTERNAL_FILEERRORS_H
#define VANTU_INTERNAL_FILEERRORS_H

namespace vantu::internal {

// Call inside a catch block: rethrows the exception being handled as the matching member of the
// VException family, carrying POCO's message text (Poco::Exception::message()). Access denied,
// not found, open failure, read-only, exists, other file errors and path syntax errors map one
// to one; another std::exception becomes VantuRuntimeException with its what() text; anything
// else VantuRuntimeException("Unkwnown exception"), spelled so.
[[noreturn]] void RethrowAsVantuException();

}  // namespace vantu::internal

#endif  // VANTU_INTERNAL_FILEERRORS_H
