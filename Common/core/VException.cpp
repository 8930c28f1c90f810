#include <vantu/VException.h>

#include <typeinfo>

VException::VException(const std::string& message, int code) : message_(message), code_(code) {}

VException::VException(const std::string& message, const VException& nested, int code)
    : message_(message), nested_(nested.Clone()), code_(code) {}

VException::VException(const VException& other)
    : std::exception(other),
      message_(other.message_),
      nested_(other.nested_ ? other.nested_->Clone() : nullptr),
      auxValue_(other.auxValue_),
      auxText_(other.auxText_),
      code_(other.code_) {}

VException& VException::operator=(const VException& other) {
  if (this != &other) {
    // Clone first, so a failed allocation leaves this object as it was.
    VException* nested = other.nested_ ? other.nested_->Clone() : nullptr;
    std::string message = other.message_;
    std::string auxText = other.auxText_;
    delete nested_;
    nested_ = nested;
    message_.swap(message);
    auxText_.swap(auxText);
    auxValue_ = other.auxValue_;
    code_ = other.code_;
  }
  return *this;
}

VException::~VException() noexcept {
  delete nested_;
  nested_ = nullptr;
}

const char* VException::what() const noexcept { return Name(); }

const char* VException::Name() const noexcept { return "VException"; }

const char* VException::ClassName() const noexcept { return typeid(*this).name(); }

VException* VException::Clone() const { return new VException(*this); }

void VException::Rethrow() const { throw *this; }

void VException::Reserved() {}

#define VANTU_IMPLEMENT_EXCEPTION(Class, Base, Text)                           \
  Class::Class(const std::string& message, int code) : Base(message, code) {}  \
  Class::Class(const std::string& message, const VException& nested, int code) \
      : Base(message, nested, code) {}                                         \
  Class::Class(const Class& other) = default;                                  \
  Class& Class::operator=(const Class& other) = default;                       \
  Class::~Class() noexcept = default;                                          \
  const char* Class::Name() const noexcept { return Text; }                    \
  Class* Class::Clone() const { return new Class(*this); }                     \
  void Class::Rethrow() const { throw *this; }

VANTU_IMPLEMENT_EXCEPTION(VantuLogicException, VException, "Logic exception")
VANTU_IMPLEMENT_EXCEPTION(VantuInvalidArgumentException, VantuLogicException, "Invalid argument")
VANTU_IMPLEMENT_EXCEPTION(VantuRuntimeException, VException, "Runtime exception")
VANTU_IMPLEMENT_EXCEPTION(VantuDataException, VantuRuntimeException, "Data error")
VANTU_IMPLEMENT_EXCEPTION(VantuSyntaxException, VantuDataException, "Syntax error")
VANTU_IMPLEMENT_EXCEPTION(VantuPathSyntaxException, VantuSyntaxException, "Bad path syntax")
VANTU_IMPLEMENT_EXCEPTION(VantuIOException, VantuRuntimeException, "I/O error")
VANTU_IMPLEMENT_EXCEPTION(VantuFileException, VantuIOException, "File access error")
VANTU_IMPLEMENT_EXCEPTION(VantuFileExistsException, VantuFileException, "File exists")
VANTU_IMPLEMENT_EXCEPTION(VantuFileNotFoundException, VantuFileException, "File not found")
VANTU_IMPLEMENT_EXCEPTION(VantuPathNotFoundException, VantuFileException, "Path not found")
VANTU_IMPLEMENT_EXCEPTION(VantuFileReadOnlyException, VantuFileException, "File is read-only")
VANTU_IMPLEMENT_EXCEPTION(VantuFileAccessDeniedException, VantuFileException,
                          "Access to file denied")
VANTU_IMPLEMENT_EXCEPTION(VantuOpenFileException, VantuFileException, "Cannot open file")
VANTU_IMPLEMENT_EXCEPTION(VantuXMLElementException, VantuRuntimeException, "XML element exception")
VANTU_IMPLEMENT_EXCEPTION(VantuXMLParseException, VantuRuntimeException, "XML parse error")
