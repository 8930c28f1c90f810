// Conversions between the six encodings on 1 MB of mixed text (ASCII, Latin, Greek, CJK,
// emoji), beside glibc iconv and POCO's TextConverter on the same text.
//
//   ConvertTo/<from>-><to>    VString::ConvertTo, as callers see it (UTF8 results are
//                             brought into NFC, which is part of the cost)
//   ConvertText/<from>-><to>  the conversion alone (internal::ConvertText)
//   iconv/<from>-><to>        glibc iconv with "?" for what the target cannot hold
//   POCO/<from>-><to>         Poco::TextConverter with "?" (internal::ConvertTextWithPoco)
//   memcpy                    copying the UTF-8 text into a new string
//
// The benchmark thread runs in the C locale, so SystemCodePage is UTF-8. The source of a
// pair is the mixed text in the source encoding (characters it lacks are "?"), so sizes
// differ between sources; throughput counts source bytes ("MB/s", 10^6 bytes per second).
#include <benchmark/benchmark.h>
#include <iconv.h>
#include <locale.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <vantu/VString.h>

#include "internal/TextConversion.h"
#include "support/Text.h"

namespace {

constexpr StringEncoding kAll[] = {SystemCodePage, ASCII, Latin1, Latin9, UTF8, UTF16};

const char* IconvName(StringEncoding encoding) {
  switch (encoding) {
    case ASCII:
      return "ASCII";
    case Latin1:
      return "ISO-8859-1";
    case Latin9:
      return "ISO-8859-15";
    case UTF16:
      return "UTF-16LE";
    default:
      return "UTF-8";
  }
}

// About 1 MB of UTF-8: lines of words drawn from five scripts, mostly ASCII.
std::string MixedUtf8() {
  static const char* const kAscii[] = {"the",  "quick", "brown",    "fox",  "jumps",
                                       "over", "lazy",  "dog",      "and",  "then",
                                       "some", "more",  "ordinary", "text", "2026"};
  static const char* const kLatin[] = {
      "Gr\xC3\xB6\xC3\x9F"
      "e",
      "Stra\xC3\x9F"
      "e",
      "caf\xC3\xA9",
      "na\xC3\xAFve",
      "fa\xC3\xA7"
      "ade",
      "cr\xC3\xA8me",
      "br\xC3\xBBl\xC3\xA9"
      "e",
      "\xC5\x92uvre",
      "\xE2\x82\xAC"
      "12",
      "Ma\xC3\xB1"
      "ana"};
  static const char* const kGreek[] = {
      "\xCE\x9A\xCE\xB1\xCE\xBB\xCE\xB7\xCE\xBC\xCE\xAD\xCF\x81\xCE\xB1",
      "\xCE\xBA\xCF\x8C\xCF\x83\xCE\xBC\xCE\xB5",
      "\xCE\xB3\xCE\xBB\xCF\x8E\xCF\x83\xCF\x83\xCE\xB1"};
  static const char* const kCjk[] = {
      "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E", "\xE4\xB8\xAD\xE6\x96\x87\xE6\x96\x87\xE6\x9C\xAC",
      "\xED\x95\x9C\xEA\xB5\xAD\xEC\x96\xB4", "\xE3\x83\x86\xE3\x82\xAD\xE3\x82\xB9\xE3\x83\x88"};
  static const char* const kEmoji[] = {"\xF0\x9F\x98\x80", "\xF0\x9F\x8E\x89", "\xF0\x9F\x9A\x80",
                                       "\xF0\x9F\x91\x8D"};
  std::mt19937 random(42);
  std::string text;
  size_t line = 0;
  while (text.size() < (1u << 20)) {
    const unsigned pick = random() % 20;
    const char* word;
    if (pick < 12) {
      word = kAscii[random() % (sizeof kAscii / sizeof kAscii[0])];
    } else if (pick < 15) {
      word = kLatin[random() % (sizeof kLatin / sizeof kLatin[0])];
    } else if (pick < 17) {
      word = kGreek[random() % (sizeof kGreek / sizeof kGreek[0])];
    } else if (pick < 19) {
      word = kCjk[random() % (sizeof kCjk / sizeof kCjk[0])];
    } else {
      word = kEmoji[random() % (sizeof kEmoji / sizeof kEmoji[0])];
    }
    text += word;
    line += std::strlen(word) + 1;
    if (line > 72) {
      text += '\n';
      line = 0;
    } else {
      text += ' ';
    }
  }
  return text;
}

// The mixed text in each encoding.
const std::string& Source(StringEncoding encoding) {
  static const std::vector<std::string> sources = [] {
    const std::string utf8 = MixedUtf8();
    std::vector<std::string> all(6);
    for (StringEncoding e : kAll) {
      if (e == UTF8 || e == SystemCodePage) {
        all[e] = utf8;
      } else {
        vantu::internal::ConvertTextWithPoco(UTF8, e, utf8, all[e]);
      }
    }
    return all;
  }();
  return sources[encoding];
}

void Count(benchmark::State& state, size_t bytes) {
  const auto total = static_cast<int64_t>(bytes) * static_cast<int64_t>(state.iterations());
  state.SetBytesProcessed(total);
  state.counters["MB/s"] =
      benchmark::Counter(static_cast<double>(total) / 1e6, benchmark::Counter::kIsRate);
}

// ConvertTo changes the string in place, so each iteration refills it (untimed) with SetRaw,
// which records UTF8 text as NFC: the timed ConvertTo does not normalise its source again, as
// for a string built by a constructor. (A copy-constructed string would be normalised again.)
void BM_ConvertTo(benchmark::State& state, StringEncoding from, StringEncoding to) {
  const std::string& source = Source(from);
  VString text;
  for (auto _ : state) {
    state.PauseTiming();
    text.SetRaw(source.data(), source.size(), from);
    state.ResumeTiming();
    text.ConvertTo(to);
    benchmark::DoNotOptimize(text.GetString().data());
  }
  Count(state, source.size());
}

void BM_ConvertText(benchmark::State& state, StringEncoding from, StringEncoding to) {
  const std::string& source = Source(from);
  for (auto _ : state) {
    std::string out;
    vantu::internal::ConvertText(from, to, source, out);
    benchmark::DoNotOptimize(out.data());
  }
  Count(state, source.size());
}

void BM_Poco(benchmark::State& state, StringEncoding from, StringEncoding to) {
  const std::string& source = Source(from);
  for (auto _ : state) {
    std::string out;
    vantu::internal::ConvertTextWithPoco(from, to, source, out);
    benchmark::DoNotOptimize(out.data());
  }
  Count(state, source.size());
}

// The length of the character at p in the source encoding, to skip one the target lacks.
size_t CharacterLength(StringEncoding from, const unsigned char* p, size_t left) {
  size_t length = 1;
  if (from == UTF16) {
    length = (p[1] & 0xFC) == 0xD8 ? 4 : 2;
  } else if (from == UTF8 || from == SystemCodePage) {
    length = p[0] >= 0xF0 ? 4 : p[0] >= 0xE0 ? 3 : p[0] >= 0xC0 ? 2 : 1;
  }
  return length < left ? length : left;
}

// iconv into a new string, with "?" for each character the target lacks. The input goes whole;
// after the first replacement, in windows of 256 bytes: after an error glibc redoes the earlier
// steps of a conversion that passes through its internal form, which over the whole text at once
// costs time quadratic in the number of replaced characters.
void IconvConvert(iconv_t cd, StringEncoding from, StringEncoding to, const std::string& in,
                  std::string& out) {
  constexpr size_t kWindow = 256;
  const bool wide = to == UTF16;
  out.resize(in.size() * (wide ? 2 : 3) + 16);
  iconv(cd, nullptr, nullptr, nullptr, nullptr);
  char* src = const_cast<char*>(in.data());
  char* const srcEnd = src + in.size();
  bool replaced = false;
  char* dst = &out[0];
  size_t dstLeft = out.size();
  while (src < srcEnd) {
    // The whole rest at once until the first replacement, then windows.
    size_t srcLeft = replaced ? std::min<size_t>(kWindow, static_cast<size_t>(srcEnd - src))
                              : static_cast<size_t>(srcEnd - src);
    if (iconv(cd, &src, &srcLeft, &dst, &dstLeft) != static_cast<size_t>(-1)) continue;
    if (errno == E2BIG) {
      const size_t written = out.size() - dstLeft;
      out.resize(out.size() * 2);
      dst = &out[written];
      dstLeft = out.size() - written;
      continue;
    }
    if (errno == EINVAL && src + srcLeft < srcEnd) continue;  // cut by the window
    replaced = true;
    *dst++ = '?';
    --dstLeft;
    if (wide) {
      *dst++ = '\0';
      --dstLeft;
    }
    src += CharacterLength(from, reinterpret_cast<const unsigned char*>(src),
                           static_cast<size_t>(srcEnd - src));
  }
  out.resize(out.size() - dstLeft);
}

void BM_Iconv(benchmark::State& state, StringEncoding from, StringEncoding to) {
  const std::string& source = Source(from);
  iconv_t cd = iconv_open(IconvName(to), IconvName(from));
  if (cd == reinterpret_cast<iconv_t>(-1)) {
    state.SkipWithError("iconv_open failed");
    for (auto _ : state) {
    }
    return;
  }
  for (auto _ : state) {
    std::string out;
    IconvConvert(cd, from, to, source, out);
    benchmark::DoNotOptimize(out.data());
  }
  iconv_close(cd);
  Count(state, source.size());
}

void BM_Memcpy(benchmark::State& state) {
  const std::string& source = Source(UTF8);
  for (auto _ : state) {
    std::string copy(source);
    benchmark::DoNotOptimize(copy.data());
  }
  Count(state, source.size());
}

std::string PairName(const char* kind, StringEncoding from, StringEncoding to) {
  return std::string(kind) + "/" + vantu::test::EncodingName(from) + "->" +
         vantu::test::EncodingName(to);
}

}  // namespace

int main(int argc, char** argv) {
  uselocale(newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr)));
  benchmark::Initialize(&argc, argv);
  for (StringEncoding from : kAll) {
    for (StringEncoding to : kAll) {
      if (from == to) continue;
      benchmark::RegisterBenchmark(PairName("ConvertTo", from, to).c_str(), BM_ConvertTo, from, to)
          ->Unit(benchmark::kMicrosecond);
      benchmark::RegisterBenchmark(PairName("ConvertText", from, to).c_str(), BM_ConvertText, from,
                                   to)
          ->Unit(benchmark::kMicrosecond);
      benchmark::RegisterBenchmark(PairName("iconv", from, to).c_str(), BM_Iconv, from, to)
          ->Unit(benchmark::kMicrosecond);
      if (from != SystemCodePage && to != SystemCodePage) {
        benchmark::RegisterBenchmark(PairName("POCO", from, to).c_str(), BM_Poco, from, to)
            ->Unit(benchmark::kMicrosecond);
      }
    }
  }
  benchmark::RegisterBenchmark("memcpy", BM_Memcpy)->Unit(benchmark::kMicrosecond);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
