// Replays edit sequences from files: every regular file of every directory
// (or file) named on the command line goes through runEditSequence once.
// CTest runs it over the seed corpus, so that every build checks the
// sequences the fuzzer found interesting without needing libFuzzer.
//
//   lumora_fuzz_replay fuzz/corpus/edit
//   LUMORA_FUZZ_TRACE=1 lumora_fuzz_replay fuzz/corpus/edit/some-input
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/edit_sequence.h"

namespace {

std::vector<std::filesystem::path> inputsOf(const std::filesystem::path& root) {
  std::vector<std::filesystem::path> files;
  if (std::filesystem::is_regular_file(root)) files.push_back(root);
  if (std::filesystem::is_directory(root)) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
      if (entry.is_regular_file()) files.push_back(entry.path());
    }
  }
  // A fixed order, so that a failure names the same file on every machine.
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s <directory or file>...\n", argv[0]);
    return 2;
  }
  unsigned replayed = 0;
  for (int a = 1; a < argc; ++a) {
    const std::vector<std::filesystem::path> files = inputsOf(argv[a]);
    if (files.empty()) {
      std::fprintf(stderr, "%s: no inputs found\n", argv[a]);
      return 2;
    }
    for (const auto& file : files) {
      std::ifstream stream(file, std::ios::binary);
      const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(stream),
                                            std::istreambuf_iterator<char>()};
      std::fprintf(stderr, "replaying %s (%zu bytes)\n", file.c_str(), bytes.size());
      lumora::fuzz::runEditSequence(bytes.data(), bytes.size());
      ++replayed;
    }
  }
  std::printf("replayed %u inputs\n", replayed);
  return 0;
}
