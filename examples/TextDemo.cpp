// Shows libvantu's text type at work: encodings, byte-order marks, normalisation and
// comparison across encodings.
#include <cstdio>
#include <string>

#include <vantu/VString.h>

namespace {

void Show(const char* label, const VString& text) {
  static const char* const kNames[] = {"SystemCodePage", "ASCII", "Latin1",
                                       "Latin9",         "UTF8",  "UTF16"};
  std::printf("%-38s %-8s %2zu bytes:", label, kNames[text.GetEncoding()], text.Length());
  for (unsigned char c : text.GetString()) std::printf(" %02X", c);
  std::printf("\n");
}

}  // namespace

int main() {
  // "Grüße" typed as decomposed UTF-8 (u + combining diaeresis): stored in NFC.
  VString greeting(
      "Gru\xCC\x88\xC3\x9F"
      "e",
      UTF8);
  Show("UTF-8 input, kept in NFC", greeting);

  VString latin(greeting);
  latin.ConvertTo(Latin1);
  Show("converted to Latin-1", latin);

  VString utf16(greeting);
  utf16.ConvertTo(UTF16);
  Show("converted to UTF-16LE", utf16);

  VString ascii(greeting);
  ascii.ConvertTo(ASCII);
  Show("converted to ASCII ('?' for the rest)", ascii);

  VString marked(
      std::string("\xEF\xBB\xBF"
                  "caf\xC3\xA9"));
  Show("bytes with a UTF-8 byte-order mark", marked);

  VString euro("\xA4 5", Latin9);
  euro.ConvertTo(UTF8);
  Show("Latin-9 euro sign to UTF-8", euro);

  std::printf("\nLatin-1 and UTF-8 spellings equal as text: %s\n",
              latin.IsEqual(greeting) ? "yes" : "no");
  // Only ASCII letters fold: "GRüßE" matches, "GRÜSSE" would not.
  std::printf("Gr\u00fc\u00dfe vs GR\u00fc\u00dfE ignoring ASCII case: %d (0 means equal)\n",
              greeting.CompareNoCase("GR\xC3\xBC\xC3\x9F"
                                     "E",
                                     UTF8));

  VString path("reports/2026/summary.txt", UTF8);
  path.ReplaceAll("/", "\\");
  std::printf("ReplaceAll: %s, ReverseFind(\"\\\\\") = %u\n", path.c_str(),
              path.ReverseFind("\\", 0));
  return 0;
}
