// Runs a fuzz target over files instead of generated inputs: all those in the folders named on the
// command line, and the files named there.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

int replayed = 0;

void replay(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  // An exact copy: a growing vector has room at its end where an overrun would go unseen.
  const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
  std::fprintf(stderr, "%s\n", path.c_str());  // first, so that a crash follows its file's name
  LLVMFuzzerTestOneInput(input.data(), input.size());
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
