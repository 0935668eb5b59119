// Images that models/make_digests.py generates too, and the ways to hand them to the library.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tq::test {

using Bytes = std::vector<std::uint8_t>;

struct Depth {
  int bits = 8;
  std::uint32_t compression = 0;
  bool in_runs = false;
};
inline constexpr Depth kDepths[] = {{1}, {1, 0, true}, {4}, {8}, {16}, {24}, {32, 200}, {32}};

// A packed DIB. `number` chooses pattern and palette.
Bytes generate_dib(const Depth& depth, int width, int height, int number);

// What callers see of an image: header, palette and rows from the top.
struct Snapshot {
  Bytes front;
  std::vector<Bytes> rows;
  friend bool operator==(const Snapshot&, const Snapshot&) = default;
};
Snapshot snapshot(std::int32_t image);

// An image that is registered over memory of the test's own, and deleted at the end of the scope.
class KeptImage {
 public:
  explicit KeptImage(Bytes dib);
  KeptImage(const Depth& depth, int width, int height, int number);
  KeptImage(const KeptImage&) = delete;
  KeptImage& operator=(const KeptImage&) = delete;
  ~KeptImage();

  std::int32_t handle() const { return handle_; }
  bool memory_untouched() const { return memory_ == original_; }

 private:
  Bytes memory_, original_;
  std::int32_t handle_;
};

// Every operation with its usual arguments.
enum class Kind : std::uint8_t { colours, moves, tones, cleans };
struct NamedOperation {
  const char* name;
  std::int32_t (*run)(std::int32_t image);
  Kind kind = Kind::colours;
};
const std::vector<NamedOperation>& all_operations();

}  // namespace tq::test
