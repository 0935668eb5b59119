// The row kernels of finding paper and ink: plain functions over one row or tile. The portable ones are
// the reference, faster ones for some processors give the same bytes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/cpu.h"

namespace tq::process {

// A page is evened out so that paper has this level; a level times kEvenScale / background is the level
// on even paper, where backgrounds are in sixteenths of levels.
inline constexpr int kPaperLevel = 230;
inline constexpr int kEvenScale = kPaperLevel * 16;

inline constexpr int kTileSide = 16;

// Of each column what the rows of a window have in all columns before it: of the first one 0, and one more
// behind the last. Levels and their squares; all wrap.
struct WindowSums {
  std::uint32_t *sums_before, *squares_before;
};

// Windows of so many columns and, as `share` is one part in all pixels of one, rows; means and deviations
// are in 1/256. Of pixel i the window begins at column i.
struct WindowRow {
  const std::uint32_t *sums_before, *squares_before;
  int columns;
  double share;
};

inline constexpr std::int64_t kWindowUnit = 256;
inline constexpr std::int64_t kFlatDeviation =
    8 * kWindowUnit;  // below is nothing but paper or ink

struct WindowRule {
  int flat_level;      // where nothing varies what is at most as light is black
  std::int64_t k;      // hundredths
  std::int64_t range;  // of deviations
};

// A column of bytes, and how many rows it is moved up. Before and behind its rows are as many zeros as rows
// are added at a time.
struct MovedColumn {
  const std::uint8_t* cells;
  std::int32_t up;
};

inline constexpr int kRowsAtATime = 64;

struct CleanupKernels {
  // The least level that at most a fifth of the pixels of a tile exceed; what it has less than others is 0.
  int (*bright_level)(const std::uint8_t* tile, std::ptrdiff_t stride, int pixels);

  // Straight lines from one of `count` + 1 values to the next, a tile's side of pixels each, the first half a
  // pixel behind the value. Values are in 1/32 of what comes out.
  void (*connect)(const std::int32_t* values, std::uint16_t* to, std::ptrdiff_t count);

  // Levels as they would be on even paper, and 1 where they would be at most `level`, which is below 254,
  // else 0.
  void (*even_out)(const std::uint8_t* levels, const std::uint16_t* background, std::uint8_t* to,
                   std::ptrdiff_t count);
  void (*mark_dark)(const std::uint8_t* levels, const std::uint16_t* background, int level,
                    std::uint8_t* marks, std::ptrdiff_t count);

  // Rows y and on of columns of `rows` rows together: sums that are bytes.
  void (*add_columns)(const MovedColumn* columns, std::ptrdiff_t count, int rows, int y,
                      std::uint8_t* sums);

  // A row enters the windows and another one leaves them.
  void (*move_windows)(const std::uint8_t* entering, const std::uint8_t* leaving,
                       const WindowSums& to, std::ptrdiff_t count);

  // The largest of `least` and the variances of windows.
  std::int64_t (*largest_variance)(const WindowRow& windows, std::int64_t least,
                                   std::ptrdiff_t count);

  // 1 where a pixel is black by its window, else 0.
  void (*mark_by_windows)(const std::uint8_t* levels, const WindowRow& windows,
                          const WindowRule& rule, std::uint8_t* marks, std::ptrdiff_t count);
};

extern const CleanupKernels kPortableCleanupKernels;
void add_avx2_kernels(CleanupKernels& kernels);

// The fastest for this processor, less what is masked.
CleanupKernels cleanup_kernels();

}  // namespace tq::process
