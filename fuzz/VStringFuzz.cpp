// Drives VString with arbitrary bytes and encodings: construction from every kind of input
// (padded for the bare pointer forms, unpadded for the forms that know the length), ConvertTo,
// Normalize, the comparisons and the editing operations. Besides crashes and
// sanitizer reports it checks that the fast conversion and normalisation paths give exactly
// the bytes of the dependencies they stand in for.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include <vantu/VString.h>

#include "FuzzCheck.h"
#include "internal/Nfc.h"
#include "internal/TextConversion.h"

namespace {

StringEncoding EncodingFrom(uint8_t byte) { return static_cast<StringEncoding>(byte % 7); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  const StringEncoding first = EncodingFrom(data[0]);
  const StringEncoding second = EncodingFrom(data[1]);
  const uint8_t selector = data[2];
  const std::string bytes(reinterpret_cast<const char*>(data + 3), size - 3);
  const size_t half = bytes.size() / 2;
  const std::string left = bytes.substr(0, half);
  const std::string right = bytes.substr(half);

  // The fast paths against the dependencies.
  if (first != second && first >= ASCII && first <= UTF16 && second >= ASCII && second <= UTF16) {
    std::string fast;
    std::string reference;
    vantu::internal::ConvertText(first, second, bytes, fast);
    vantu::internal::ConvertTextWithPoco(first, second, bytes, reference);
    CHECK(fast == reference);
  }
  {
    std::string fast = bytes;
    std::string reference = bytes;
    const int form = selector % 4;
    const bool fastOk = vantu::internal::NormalizeUtf8(fast, form);
    const bool referenceOk = vantu::internal::NormalizeUtf8WithUtf8proc(reference, form);
    CHECK(fastOk == referenceOk && fast == reference);
  }

  // Construction from every kind of input. The bare pointer forms read up to a NUL byte or a
  // 0x0000 unit, so they get text padded with both at either alignment; the forms that know the
  // length get the input unpadded (the fuzzer's own buffer, exactly sized copies), so that a read
  // past the end is a sanitizer report.
  const char* const unpadded = reinterpret_cast<const char*>(data + 3);
  VString a(left, first);
  VString b(right, second);
  std::string terminated = bytes;
  terminated.append(4, '\0');
  VString fromPointer(terminated.c_str(), first);
  VString fromMarked(terminated.c_str());
  const size_t pascalSize = bytes.size() > 255 ? 255 : bytes.size();
  std::unique_ptr<unsigned char[]> pascal(new unsigned char[pascalSize + 1]);
  pascal[0] = static_cast<unsigned char>(pascalSize);
  std::memcpy(pascal.get() + 1, unpadded, pascalSize);
  VString fromPascal(pascal.get(), second);
  VString raw;
  raw.SetRaw(unpadded, bytes.size(), first);
  VString counted(second);
  counted.Set(unpadded, bytes.size());
  VString assigned(first);
  assigned.Assign(bytes);
  assigned.Set(pascal.get());
  // The forms that know the length agree with the std::string constructor.
  const VString fromString(bytes);
  const VString fromPrefix(bytes.substr(0, pascalSize), second);
  CHECK(counted.GetString() == fromString.GetString());
  CHECK(counted.GetEncoding() == fromString.GetEncoding());
  CHECK(fromPascal.GetString() == fromPrefix.GetString());
  CHECK(fromPascal.GetEncoding() == fromPrefix.GetEncoding());
  (void)counted.Compare(bytes, first);
  (void)counted.CompareNoCaseN(bytes, selector);
  (void)fromPascal.IsEqual(pascal.get());
  counted.Append(bytes).Append(pascal.get());

  // Conversions, normalisation and the operations that combine two strings.
  VString converted(a);
  const bool known = a.GetEncoding() <= UTF16 && second <= UTF16;
  CHECK(converted.ConvertTo(second) == known);
  CHECK(converted.GetEncoding() == (known ? second : a.GetEncoding()));
  converted.ConvertTo(first);
  raw.Normalize(static_cast<NormalizationForm>(selector % 5));
  (void)a.IsEqual(b);
  (void)a.Compare(b);
  (void)a.CompareNoCaseN(b, selector);
  std::string rightTerminated = right;
  rightTerminated.append(4, '\0');
  (void)fromPointer.CompareNoCase(rightTerminated.c_str(), second);
  a.Append(b);
  fromMarked.Append(fromPascal);

  // Editing.
  switch (selector % 8) {
    case 0:
      a.ReplaceAll(left, right.substr(0, 8));
      break;
    case 1:
      a.Trim(static_cast<char>(selector));
      break;
    case 2:
      (void)a.ReverseFind(right, selector);
      break;
    case 3:
      (void)a.Find(right, selector % 16);
      break;
    case 4:
      a.URIEncode();
      a.URIDecode();
      break;
    case 5:
      a.URIDecode();
      break;
    case 6:
      a.Capitalize();
      a.KeepNumeric();
      break;
    default:
      a.SwapByteOrder();
      a.ToUpper();
      break;
  }
  return 0;
}
