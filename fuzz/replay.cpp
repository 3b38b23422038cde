// Runs a fuzz target over the files named, or over all files of the directories named, without the
// fuzzer: corpora serve as ordinary tests this way. "--reached" first: also print what the corpus
// reaches, and fail if it is not everything.

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#ifdef KORVA_REACHED
#include "fuzz/reached.h"
#endif

namespace fs = std::filesystem;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

static void replay(const fs::path &path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

int main(int argc, char **argv) {
  size_t inputs = 0;
  const bool reached = argc > 1 && strcmp(argv[1], "--reached") == 0;
  for (int i = reached ? 2 : 1; i < argc; ++i) {
    if (!fs::is_directory(argv[i])) {
      replay(argv[i]);
      ++inputs;
      continue;
    }
    for (const auto &entry : fs::directory_iterator(argv[i])) {
      replay(entry.path());
      ++inputs;
    }
  }
  printf("%zu inputs replayed\n", inputs);
#ifdef KORVA_REACHED
  if (reached && !print_reached())
    return 1;
#endif
  return inputs == 0 ? 1 : 0;
}
