// Every exception of the file system layer becomes the matching library exception.
#include <gtest/gtest.h>

#include <Poco/Exception.h>

#include <stdexcept>
#include <string>
#include <typeinfo>

#include <vantu/VException.h>

#include "internal/FileErrors.h"

namespace {

template <typename Expected, typename Thrown>
void ExpectTranslated(const Thrown& thrown, const std::string& message) {
  try {
    try {
      throw thrown;
    } catch (...) {
      vantu::internal::RethrowAsVantuException();
    }
  } catch (const Expected& e) {
    EXPECT_EQ(typeid(e), typeid(Expected));
    EXPECT_EQ(e.Message(), message);
    EXPECT_EQ(e.Code(), 0);
    return;
  } catch (...) {
  }
  ADD_FAILURE() << "not translated into " << typeid(Expected).name();
}

TEST(FileErrorsTest, EachDependencyExceptionMapsToOneOfOurs) {
  ExpectTranslated<VantuFileAccessDeniedException>(Poco::FileAccessDeniedException("a"), "a");
  ExpectTranslated<VantuFileNotFoundException>(Poco::FileNotFoundException("b"), "b");
  ExpectTranslated<VantuOpenFileException>(Poco::OpenFileException("c"), "c");
  ExpectTranslated<VantuFileReadOnlyException>(Poco::FileReadOnlyException("d"), "d");
  ExpectTranslated<VantuFileExistsException>(Poco::FileExistsException("e"), "e");
  ExpectTranslated<VantuFileException>(Poco::CreateFileException("f"), "f");
  ExpectTranslated<VantuPathSyntaxException>(Poco::PathSyntaxException("g"), "g");
  ExpectTranslated<VantuRuntimeException>(std::runtime_error("h"), "h");
  ExpectTranslated<VantuRuntimeException>(42, "Unkwnown exception");
  // POCO's message() is the text without the class's display name.
  ExpectTranslated<VantuFileNotFoundException>(Poco::FileNotFoundException("x", "y"), "x: y");
}

}  // namespace
