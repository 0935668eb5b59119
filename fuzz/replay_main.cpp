// Runs a fuzz target over files instead of generated inputs: all those in the folders named on the
// command line, and the files named there.
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz/fuzz_support.h"

namespace {

int replayed = 0;

void replay(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  const tq::fuzz::Memory input(bytes.begin(), bytes.end());
  std::fprintf(stderr, "%s\n", path.c_str());  // first, so that a crash follows its file's name
  tq::fuzz::fuzz(input);
  ++replayed;
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (std::filesystem::is_regular_file(argv[i])) replay(argv[i]);
    if (!std::filesystem::is_directory(argv[i])) continue;
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) replay(entry.path());
  }
  std::printf("%d inputs replayed\n", replayed);
  return replayed > 0 ? 0 : 1;
}
