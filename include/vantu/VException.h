// VException: the root of libvantu's exception tree, and its sixteen subclasses.
//
// Every exception the library throws itself is one of these; operations that call a dependency
// translate the dependency's exceptions into the matching member. VException derives from
// std::exception, so catching std::exception catches them all.
//
// what() and Name() return the class's fixed message ("File not found", ...), never the text
// given to the constructor; Message() returns that text. An exception may own a nested one,
// deep-copied on copy. ClassName() is the dynamic class's name as the platform's type
// information spells it (a mangled name under GCC). Clone() returns a new copy of the dynamic
// class, owned by the caller; Rethrow() throws a copy by its dynamic class.
//
// The tree (fixed messages in quotes):
//   VException "VException"
//     VantuLogicException "Logic exception"
//       VantuInvalidArgumentException "Invalid argument"
//     VantuRuntimeException "Runtime exception"
//       VantuDataException "Data error"
//         VantuSyntaxException "Syntax error"
//           VantuPathSyntaxException "Bad path syntax"
//       VantuIOException "I/O error"
//         VantuFileException "File access error"
//           VantuFileExistsException, VantuFileNotFoundException, VantuPathNotFoundException,
//           VantuFileReadOnlyException, VantuFileAccessDeniedException, VantuOpenFileException
//       VantuXMLElementException "XML element exception"
//       VantuXMLParseException "XML parse error"
//
// Construction and Clone() let std::bad_alloc through; nothing else throws.
#ifndef VANTU_VEXCEPTION_H
#define VANTU_VEXCEPTION_H

#include <cstdint>
#include <exception>
#include <string>

#include <vantu/Export.h>

class VANTU_API VException : public std::exception {
 public:
  explicit VException(const std::string& message, int code = 0);
  // Owns a clone of nested.
  VException(const std::string& message, const VException& nested, int code = 0);
  VException(const VException& other);
  VException& operator=(const VException& other);

  // Slot 0.
  ~VException() noexcept override;
  // Slot 1: the same pointer as Name().
  const char* what() const noexcept override;
  // Slot 2: the class's fixed message.
  virtual const char* Name() const noexcept;
  // Slot 3: the dynamic class's name from run-time type information.
  virtual const char* ClassName() const noexcept;
  // Slot 4: a new copy of the dynamic class; the caller owns it.
  virtual VException* Clone() const;
  // Slot 5: throws a copy of this object by its dynamic class.
  [[noreturn]] virtual void Rethrow() const;
  // Slot 6: reserved; does nothing.
  virtual void Reserved();

  const std::string& Message() const noexcept { return message_; }
  int Code() const noexcept { return code_; }
  // The nested exception, or null; owned by this one.
  const VException* Nested() const noexcept { return nested_; }

 private:
  std::string message_;
  VException* nested_ = nullptr;
  uint64_t auxValue_ = 0;
  std::string auxText_;
  int code_ = 0;
};

// Declares a subclass that adds only its identity and fixed message.
#define VANTU_DECLARE_EXCEPTION(Class, Base)                                   \
  class VANTU_API Class : public Base {                                        \
   public:                                                                     \
    explicit Class(const std::string& message, int code = 0);                  \
    Class(const std::string& message, const VException& nested, int code = 0); \
    Class(const Class& other);                                                 \
    Class& operator=(const Class& other);                                      \
    ~Class() noexcept override;                                                \
    const char* Name() const noexcept override;                                \
    Class* Clone() const override;                                             \
    [[noreturn]] void Rethrow() const override;                                \
  };

VANTU_DECLARE_EXCEPTION(VantuLogicException, VException)
VANTU_DECLARE_EXCEPTION(VantuInvalidArgumentException, VantuLogicException)
VANTU_DECLARE_EXCEPTION(VantuRuntimeException, VException)
VANTU_DECLARE_EXCEPTION(VantuDataException, VantuRuntimeException)
VANTU_DECLARE_EXCEPTION(VantuSyntaxException, VantuDataException)
VANTU_DECLARE_EXCEPTION(VantuPathSyntaxException, VantuSyntaxException)
VANTU_DECLARE_EXCEPTION(VantuIOException, VantuRuntimeException)
VANTU_DECLARE_EXCEPTION(VantuFileException, VantuIOException)
VANTU_DECLARE_EXCEPTION(VantuFileExistsException, VantuFileException)
VANTU_DECLARE_EXCEPTION(VantuFileNotFoundException, VantuFileException)
VANTU_DECLARE_EXCEPTION(VantuPathNotFoundException, VantuFileException)
VANTU_DECLARE_EXCEPTION(VantuFileReadOnlyException, VantuFileException)
VANTU_DECLARE_EXCEPTION(VantuFileAccessDeniedException, VantuFileException)
VANTU_DECLARE_EXCEPTION(VantuOpenFileException, VantuFileException)
VANTU_DECLARE_EXCEPTION(VantuXMLElementException, VantuRuntimeException)
VANTU_DECLARE_EXCEPTION(VantuXMLParseException, VantuRuntimeException)

#undef VANTU_DECLARE_EXCEPTION

#endif  // VANTU_VEXCEPTION_H
