#include "internal/FileErrors.h"

#include <Poco/Exception.h>

#include <exception>

#include <vantu/VException.h>

namespace vantu::internal {

void RethrowAsVantuException() {
  try {
    throw;
  } catch (const Poco::FileAccessDeniedException& e) {
    throw VantuFileAccessDeniedException(e.message(), 0);
  } catch (const Poco::FileNotFoundException& e) {
    throw VantuFileNotFoundException(e.message(), 0);
  } catch (const Poco::OpenFileException& e) {
    throw VantuOpenFileException(e.message(), 0);
  } catch (const Poco::FileReadOnlyException& e) {
    throw VantuFileReadOnlyException(e.message(), 0);
  } catch (const Poco::FileExistsException& e) {
    throw VantuFileExistsException(e.message(), 0);
  } catch (const Poco::FileException& e) {
    throw VantuFileException(e.message(), 0);
  } catch (const Poco::PathSyntaxException& e) {
    throw VantuPathSyntaxException(e.message(), 0);
  } catch (const VException&) {
    throw;
  } catch (const std::exception& e) {
    throw VantuRuntimeException(e.what(), 0);
  } catch (...) {
    throw VantuRuntimeException("Unkwnown exception", 0);
  }
}

}  // namespace vantu::internal
