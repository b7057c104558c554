// The reader of the intermediate file on arbitrary bytes. The result or exception, the console and
// the data must be those of the plain code, to the last bit.

#include "fuzz.h"
#include "tests/plain/plain_utils.h"
#include "tests/support/open_utils.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const ScratchFolder folder;
  static const ScratchFile file("internal.txt");
  static Console console;

  file.set({reinterpret_cast<const char*>(data), size});
  OpenUtils product(0, "table", "report", 1, 2);
  plain::UTILS plain(0, "table", "report", 1, 2);
  const std::string result = result_of([&product] { return product.loadInternalFile(); });
  const std::string text = console.take();
  require(result == result_of([&plain] { return plain.loadInternalFile(); }), "result");
  require(text == console.take(), "console");
  require(product.id == plain.id, "IDs");
  require(same_bits(product.zspec, plain.zspec), "zspec");
  require(same_bits(product.zphot, plain.zphot), "zphot");
  return 0;
}
