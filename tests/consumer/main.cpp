// Uses the installed library through its public headers only; exits non-zero on a fault.
#include <cstdio>
#include <vantu/vantu.hpp>

int main() {
  VString text("caf\xC3\xA9", UTF8);
  VString latin(text);
  if (!latin.ConvertTo(Latin1) || latin.GetString() != "caf\xE9" || !latin.IsEqual(text)) {
    std::puts("conversion failed");
    return 1;
  }
  try {
    throw VantuFileNotFoundException("missing.txt");
  } catch (const VantuIOException& e) {
    std::printf("consumer ok: %s, %s (%s)\n", latin.GetClassName().c_str(), e.what(),
                e.Message().c_str());
    return 0;
  }
  return 1;
}
