#include "internal/TextConversion.h"

#include <Poco/ASCIIEncoding.h>
#include <Poco/Latin1Encoding.h>
#include <Poco/Latin9Encoding.h>
#include <Poco/TextConverter.h>
#include <Poco/UTF16Encoding.h>
#include <Poco/UTF8Encoding.h>

#include "platform/Platform.h"

namespace vantu::internal {
namespace {

// POCO's encodings are stateless after construction and safe to share between threads.
const Poco::TextEncoding& PocoEncoding(StringEncoding encoding) {
  static const Poco::ASCIIEncoding ascii;
  static const Poco::Latin1Encoding latin1;
  static const Poco::Latin9Encoding latin9;
  static const Poco::UTF8Encoding utf8;
  static const Poco::UTF16Encoding utf16(Poco::UTF16Encoding::LITTLE_ENDIAN_BYTE_ORDER);
  switch (encoding) {
    case ASCII:
      return ascii;
    case Latin1:
      return latin1;
    case Latin9:
      return latin9;
    case UTF16:
      return utf16;
    default:
      return utf8;
  }
}

}  // namespace

void ConvertTextWithPoco(StringEncoding from, StringEncoding to, const std::string& in,
                         std::string& out) {
  out.clear();
  Poco::TextConverter converter(PocoEncoding(from), PocoEncoding(to), '?');
  converter.convert(in, out);
}

void ConvertText(StringEncoding from, StringEncoding to, const std::string& in, std::string& out) {
  if (from == to) {
    out = in;
    return;
  }
  if (from == SystemCodePage) {
    std::string utf16;
    platform::CodePageToUtf16(in, utf16);
    ConvertText(UTF16, to, utf16, out);
    return;
  }
  if (to == SystemCodePage) {
    std::string utf16;
    ConvertText(from, UTF16, in, utf16);
    platform::Utf16ToCodePage(utf16, out);
    return;
  }
  ConvertTextWithPoco(from, to, in, out);
}

}  // namespace vantu::internal
