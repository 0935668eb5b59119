// Runs a fuzz target over files instead of generated inputs: every file named on the command line,
// and every file in a folder named there.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

bool replay(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    std::fprintf(stderr, "cannot read %s\n", path.c_str());
    return false;
  }
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  // An exact copy: a growing vector has room at its end where an overrun would go unseen.
  const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
  std::fprintf(stderr, "%s\n", path.c_str());  // first, so that a crash follows its file's name
  LLVMFuzzerTestOneInput(input.data(), input.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  int replayed = 0;
  int unread = 0;
  for (int i = 1; i < argc; ++i) {
    std::error_code error;
    if (!fs::is_directory(argv[i], error)) {
      ++(replay(argv[i]) ? replayed : unread);
      continue;
    }
    for (const auto& entry : fs::recursive_directory_iterator(argv[i])) {
      if (entry.is_regular_file()) ++(replay(entry.path()) ? replayed : unread);
    }
  }
  std::printf("%d inputs replayed, %d unread\n", replayed, unread);
  return replayed > 0 && unread == 0 ? 0 : 1;
}
