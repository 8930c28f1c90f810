// Building UTF8 strings from 1 MB of text that is already NFC: the quick check beside always
// calling utf8proc, and beside a plain copy of the bytes.
#include <benchmark/benchmark.h>

#include <string>

#include <vantu/VString.h>

#include "internal/Nfc.h"

namespace {

std::string Repeat(const std::string& piece) {
  std::string text;
  while (text.size() < (1u << 20)) text += piece;
  return text;
}

const std::string& Input(int kind) {
  static const std::string kTexts[] = {
      Repeat("The quick brown fox jumps over the lazy dog; 0123456789.\n"),
      Repeat("Gr\xC3\xBC\xC3\x9F"
             "e aus K\xC3\xB6ln, \xC3\xA7\xC3\xA0 et l\xC3\xA0, "
             "\xC3\xA6\xC3\xB8\xC3\xA5 "),
      Repeat("\xCE\x9A\xCE\xB1\xCE\xBB\xCE\xB7\xCE\xBC\xCE\xAD\xCF\x81\xCE\xB1 "
             "\xCE\xBA\xCF\x8C\xCF\x83\xCE\xBC\xCE\xB5 "),
      Repeat("\xE4\xB8\xAD\xE6\x96\x87\xE6\x96\x87\xE6\x9C\xAC\xE6\xB5\x8B\xE8\xAF\x95"
             "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E\xED\x95\x9C\xEA\xB5\xAD\xEC\x96\xB4"),
      Repeat("\xF0\x9F\x98\x80\xF0\x9F\x8E\x89\xF0\x9F\x9A\x80\xF0\x9F\x8C\x8D"),
      Repeat("ASCII, Latin \xC3\xA9, Greek \xCE\xB1\xCE\xB2, CJK \xE4\xB8\xAD, emoji "
             "\xF0\x9F\x98\x80. "),
  };
  return kTexts[kind];
}

const char* const kNames[] = {"ascii", "latin", "greek", "cjk", "emoji", "mixed"};

void BM_VStringFromUtf8(benchmark::State& state) {
  const std::string& text = Input(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    VString built(text, UTF8);
    benchmark::DoNotOptimize(built.GetString().data());
  }
  state.SetLabel(kNames[state.range(0)]);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_VStringFromUtf8)->DenseRange(0, 5);

void BM_Utf8procNfc(benchmark::State& state) {
  const std::string& text = Input(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    std::string copy = text;
    vantu::internal::NormalizeUtf8WithUtf8proc(copy, NFC);
    benchmark::DoNotOptimize(copy.data());
  }
  state.SetLabel(kNames[state.range(0)]);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_Utf8procNfc)->DenseRange(0, 5);

void BM_PlainCopy(benchmark::State& state) {
  const std::string& text = Input(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    std::string copy = text;
    benchmark::DoNotOptimize(copy.data());
  }
  state.SetLabel(kNames[state.range(0)]);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_PlainCopy)->DenseRange(0, 5);

}  // namespace

BENCHMARK_MAIN();
