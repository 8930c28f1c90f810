#include "internal/Nfc.h"

#include <utf8proc.h>

#include <cstdlib>

namespace vantu::internal {

bool NormalizeUtf8WithUtf8proc(std::string& text, int form) {
  static const int kOptions[] = {
      UTF8PROC_DECOMPOSE,                    // NFD
      UTF8PROC_DECOMPOSE | UTF8PROC_COMPAT,  // NFKD
      UTF8PROC_COMPOSE,                      // NFC
      UTF8PROC_COMPOSE | UTF8PROC_COMPAT,    // NFKC
  };
  if (form < 0 || form > 3) return false;
  utf8proc_uint8_t* result = nullptr;
  const auto options =
      static_cast<utf8proc_option_t>(kOptions[form] | UTF8PROC_NULLTERM | UTF8PROC_STABLE);
  const utf8proc_ssize_t length =
      utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.c_str()), 0, &result, options);
  if (length < 0 || result == nullptr) {
    std::free(result);
    return false;
  }
  try {
    text.assign(reinterpret_cast<const char*>(result), static_cast<size_t>(length));
  } catch (...) {
    std::free(result);
    throw;
  }
  std::free(result);
  return true;
}

bool NormalizeUtf8(std::string& text, int form) { return NormalizeUtf8WithUtf8proc(text, form); }

}  // namespace vantu::internal
