// Building UTF8 strings and converting them, beside utf8proc and ICU (a peer linked into this
// benchmark only). Every side of a comparison reads the same bytes: one text per kind, repeated
// to the size in MB given as the second argument (1 stays in cache, 50 does not).
//
//   FromUtf8          VString(text, UTF8): copy plus NFC (the quick check, or composing)
//   Utf8procNfc       utf8proc's NFC of a copy of the text
//   IcuNfc            ICU's Normalizer2 NFC normalizeUTF8 of the text
//   IcuFromUtf8       ICU's u_strFromUTF8 into a UTF-16 buffer
//   CopyToUtf16       a copy of an NFC VString, ConvertTo(UTF16)
//   CopyToLatin1      a copy of an NFC VString, ConvertTo(Latin1)
//   PlainCopy         copying the bytes into a new std::string
//
// Kinds: ascii, european, greek, cjk, korean, mixed (all NFC), european-nfd and korean-nfd
// (their canonical decompositions, which NFC composes again).
#include <benchmark/benchmark.h>
#include <unicode/bytestream.h>
#include <unicode/normalizer2.h>
#include <unicode/ustring.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <vantu/VString.h>

#include "internal/Nfc.h"

namespace {

const char* const kNames[] = {"ascii",  "european", "greek",        "cjk",
                              "korean", "mixed",    "european-nfd", "korean-nfd"};

const char* Piece(int kind) {
  switch (kind) {
    case 0:
      return "The quick brown fox jumps over the lazy dog; 0123456789.\n";
    case 1:
    case 6:
      return u8"Gr\u00FC\u00DFe aus K\u00F6ln, \u00E7\u00E0 et l\u00E0, \u00E6\u00F8\u00E5, "
             u8"se\u00F1or Mu\u00F1oz, p\u00E9r\u00E9grination \u00E0 l'\u00E9t\u00E9, "
             u8"Za\u017C\u00F3\u0142\u0107 g\u0119\u015Bl\u0105 ja\u017A\u0144, "
             u8"P\u0159\u00EDli\u0161 \u017Elu\u0165ou\u010Dk\u00FD k\u016F\u0148.\n";
    case 2:
      return u8"\u039A\u03B1\u03BB\u03B7\u03BC\u03AD\u03C1\u03B1 \u03BA\u03CC\u03C3\u03BC\u03B5 ";
    case 3:
      return u8"\u4E2D\u6587\u6587\u672C\u6D4B\u8BD5\u65E5\u672C\u8A9E\u306E\u30C6\u30AD\u30B9"
             u8"\u30C8\u3002";
    case 4:
    case 7:
      return u8"\uD55C\uAD6D\uC5B4 \uD14D\uC2A4\uD2B8\uB97C \uC815\uADDC\uD654\uD558\uB294 "
             u8"\uC2DC\uD5D8\uC785\uB2C8\uB2E4. \uB2E4\uB78C\uC950 \uD5CC \uCCC7\uBC14\uD034\uC5D0 "
             u8"\uD0C0\uACE0\uD30C.\n";
    default:
      return u8"ASCII, Latin \u00E9, Greek \u03B1\u03B2, CJK \u4E2D, emoji \U0001F600. ";
  }
}

// The text of a kind, `megabytes` MB long (the NFD kinds: the decomposition of that much NFC).
const std::string& Input(int kind, int megabytes) {
  static std::map<std::pair<int, int>, std::string> texts;
  std::string& text = texts[{kind, megabytes}];
  if (text.empty()) {
    const std::string piece = Piece(kind);
    while (text.size() < (static_cast<size_t>(megabytes) << 20)) text += piece;
    if (kind >= 6) vantu::internal::NormalizeUtf8WithUtf8proc(text, NFD);
  }
  return text;
}

struct Case {
  const std::string& text;
  Case(benchmark::State& state)
      : text(Input(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)))) {
    state.SetLabel(kNames[state.range(0)]);
  }
};

void Count(benchmark::State& state, size_t bytes) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

void BM_FromUtf8(benchmark::State& state) {
  Case c(state);
  for (auto _ : state) {
    VString built(c.text, UTF8);
    benchmark::DoNotOptimize(built.GetString().data());
  }
  Count(state, c.text.size());
}

void BM_Utf8procNfc(benchmark::State& state) {
  Case c(state);
  for (auto _ : state) {
    std::string copy = c.text;
    vantu::internal::NormalizeUtf8WithUtf8proc(copy, NFC);
    benchmark::DoNotOptimize(copy.data());
  }
  Count(state, c.text.size());
}

void BM_IcuNfc(benchmark::State& state) {
  Case c(state);
  UErrorCode error = U_ZERO_ERROR;
  const icu::Normalizer2* nfc = icu::Normalizer2::getNFCInstance(error);
  for (auto _ : state) {
    std::string out;
    out.reserve(c.text.size());
    icu::StringByteSink<std::string> sink(&out);
    error = U_ZERO_ERROR;
    nfc->normalizeUTF8(0, icu::StringPiece(c.text.data(), static_cast<int32_t>(c.text.size())),
                       sink, nullptr, error);
    benchmark::DoNotOptimize(out.data());
  }
  if (U_FAILURE(error)) state.SkipWithError(u_errorName(error));
  Count(state, c.text.size());
}

void BM_IcuFromUtf8(benchmark::State& state) {
  Case c(state);
  UErrorCode error = U_ZERO_ERROR;
  for (auto _ : state) {
    std::u16string out(c.text.size(), u'\0');
    int32_t length = 0;
    error = U_ZERO_ERROR;
    u_strFromUTF8(reinterpret_cast<UChar*>(&out[0]), static_cast<int32_t>(out.size()), &length,
                  c.text.data(), static_cast<int32_t>(c.text.size()), &error);
    out.resize(static_cast<size_t>(length));
    benchmark::DoNotOptimize(out.data());
  }
  if (U_FAILURE(error)) state.SkipWithError(u_errorName(error));
  Count(state, c.text.size());
}

void CopyAndConvert(benchmark::State& state, StringEncoding target) {
  Case c(state);
  const VString source(c.text, UTF8);
  for (auto _ : state) {
    VString copy(source);
    copy.ConvertTo(target);
    benchmark::DoNotOptimize(copy.GetString().data());
  }
  Count(state, source.Length());  // the NFC bytes converted (fewer than the NFD kinds' input)
}

void BM_CopyToUtf16(benchmark::State& state) { CopyAndConvert(state, UTF16); }
void BM_CopyToLatin1(benchmark::State& state) { CopyAndConvert(state, Latin1); }

void BM_PlainCopy(benchmark::State& state) {
  Case c(state);
  for (auto _ : state) {
    std::string copy = c.text;
    benchmark::DoNotOptimize(copy.data());
  }
  Count(state, c.text.size());
}

// Every kind at 1 MB and the European, Korean and their NFD forms at 50 MB.
void Sizes(benchmark::internal::Benchmark* b) {
  for (int kind = 0; kind < 8; ++kind) b->Args({kind, 1});
  for (int kind : {1, 4, 6, 7}) b->Args({kind, 50});
}

BENCHMARK(BM_FromUtf8)->Apply(Sizes);
BENCHMARK(BM_Utf8procNfc)->Apply(Sizes);
BENCHMARK(BM_IcuNfc)->Apply(Sizes);
BENCHMARK(BM_IcuFromUtf8)->Apply(Sizes);
BENCHMARK(BM_CopyToUtf16)->Apply(Sizes);
BENCHMARK(BM_CopyToLatin1)->Apply(Sizes);
BENCHMARK(BM_PlainCopy)->Apply(Sizes);

}  // namespace

BENCHMARK_MAIN();
