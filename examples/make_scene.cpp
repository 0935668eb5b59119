// Writes painted pictures as BMP files of every kind, byte by byte and without the library:
// input for demonstrations and for comparisons with other programs.
//
//   make_scene OUTDIR
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "scene.h"

namespace {

using scene::Colour;
using scene::noise;
using scene::Picture;

int level(double value, int most) {
  return static_cast<int>(std::lround(std::clamp(value, 0.0, 1.0) * most));
}

using Row = std::vector<std::uint8_t>;
using Palette = std::vector<std::array<std::uint8_t, 3>>;  // blue, green, red

Row true_colour_row(const Picture& picture, int y, int bytes_per_pixel) {
  Row row;
  for (int x = 0; x < picture.width; ++x) {
    const Colour& c = picture.at(x, y);
    for (const double value : {c.blue, c.green, c.red}) {
      row.push_back(static_cast<std::uint8_t>(level(value, 255)));
    }
    if (bytes_per_pixel == 4) row.push_back(0);
  }
  return row;
}

Row word_row(const Picture& picture, int y, int green_bits) {
  Row row;
  for (int x = 0; x < picture.width; ++x) {
    const Colour& c = picture.at(x, y);
    const int word = level(c.red, 31) << (5 + green_bits) |
                     level(c.green, (1 << green_bits) - 1) << 5 | level(c.blue, 31);
    row.push_back(static_cast<std::uint8_t>(word & 0xFF));
    row.push_back(static_cast<std::uint8_t>(word >> 8));
  }
  return row;
}

// Eight levels of red and green, four of blue.
Palette cube_palette() {
  Palette palette;
  for (int i = 0; i < 256; ++i) {
    palette.push_back({static_cast<std::uint8_t>((i & 3) * 85),
                       static_cast<std::uint8_t>((i >> 2 & 7) * 255 / 7),
                       static_cast<std::uint8_t>((i >> 5) * 255 / 7)});
  }
  return palette;
}

Row cube_row(const Picture& picture, int y) {
  Row row;
  for (int x = 0; x < picture.width; ++x) {
    const Colour& c = picture.at(x, y);
    const double nudge = (noise(x + 7, y + 3) - 0.5) / 7;  // breaks up the bands
    row.push_back(static_cast<std::uint8_t>(
        level(c.red + nudge, 7) << 5 | level(c.green + nudge, 7) << 2 | level(c.blue + nudge, 3)));
  }
  return row;
}

// The sixteen colours that displays began with.
Palette sixteen_colours() {
  Palette palette;
  for (int i = 0; i < 16; ++i) {
    const auto part = [i](int bit) {
      const int full = i >= 8 ? 255 : 128;
      return static_cast<std::uint8_t>((i & bit) != 0 ? full : 0);
    };
    palette.push_back({part(4), part(2), part(1)});
  }
  palette[7] = {192, 192, 192};
  palette[8] = {128, 128, 128};
  return palette;
}

int nearest(const Palette& palette, const Colour& c) {
  int best = 0;
  double least = 10;
  for (std::size_t i = 0; i < palette.size(); ++i) {
    const double db = palette[i][0] / 255.0 - c.blue;
    const double dg = palette[i][1] / 255.0 - c.green;
    const double dr = palette[i][2] / 255.0 - c.red;
    const double distance = db * db + dg * dg + dr * dr;
    if (distance >= least) continue;
    least = distance;
    best = static_cast<int>(i);
  }
  return best;
}

Row index_row(const Picture& picture, int y, const Palette& palette) {
  Row row;
  for (int x = 0; x < picture.width; ++x) {
    row.push_back(static_cast<std::uint8_t>(nearest(palette, picture.at(x, y))));
  }
  return row;
}

// Indices of one byte each, packed to `bits` bits.
Row packed(const Row& indices, int bits) {
  Row row((indices.size() * bits + 7) / 8);
  for (std::size_t i = 0; i < indices.size(); ++i) {
    const std::size_t at = i * bits;
    row[at / 8] = static_cast<std::uint8_t>(row[at / 8] | indices[i] << (8 - bits - at % 8));
  }
  return row;
}

// ---- BMP files ----

class Bytes {
 public:
  void put8(int value) { bytes_.push_back(static_cast<std::uint8_t>(value)); }
  void put16(int value) {
    put8(value & 0xFF);
    put8(value >> 8 & 0xFF);
  }
  void put32(std::int64_t value) {
    put16(static_cast<int>(value & 0xFFFF));
    put16(static_cast<int>(value >> 16 & 0xFFFF));
  }
  void put(const Row& row) { bytes_.insert(bytes_.end(), row.begin(), row.end()); }
  std::size_t size() const { return bytes_.size(); }
  const Row& bytes() const { return bytes_; }

 private:
  Row bytes_;
};

struct Bmp {
  const char* name;
  int width, height, bits;
  int compression = 0;
  Palette palette = {};
  bool top_down = false;
  bool os2 = false;
  int dots_per_metre = 3780;  // 96 dots per inch
};

void put_run(Bytes& out, int count, int value) {
  out.put8(count);
  out.put8(value);
}

void put_literal(Bytes& out, const Row& row, std::size_t from, std::size_t to) {
  if (to - from < 3) {  // an absolute run of 1 or 2 would be an escape
    for (; from < to; ++from) put_run(out, 1, row[from]);
    return;
  }
  put_run(out, 0, static_cast<int>(to - from));
  out.put(Row(row.begin() + static_cast<std::ptrdiff_t>(from),
              row.begin() + static_cast<std::ptrdiff_t>(to)));
  if ((to - from) % 2 != 0) out.put8(0);
}

// RLE8: runs of three and more, literals between them.
void put_rle8(Bytes& out, const Row& row) {
  std::size_t literal = 0;
  std::size_t at = 0;
  while (at < row.size()) {
    std::size_t end = at;
    while (end < row.size() && row[end] == row[at] && end - at < 255) ++end;
    if (end - at >= 3) {
      put_literal(out, row, literal, at);
      put_run(out, static_cast<int>(end - at), row[at]);
      literal = end;
    } else if (end - literal >= 250) {
      put_literal(out, row, literal, end);
      literal = end;
    }
    at = end;
  }
  put_literal(out, row, literal, row.size());
  put_run(out, 0, 0);
}

bool write_bmp(const std::string& folder, const Bmp& bmp, const std::function<Row(int)>& row) {
  Bytes rows;
  for (int i = 0; i < bmp.height; ++i) {
    const Row pixels = row(bmp.top_down ? i : bmp.height - 1 - i);
    if (bmp.compression == 1) {
      put_rle8(rows, pixels);
      continue;
    }
    rows.put(pixels);
    while (rows.size() % 4 != 0) rows.put8(0);
  }
  if (bmp.compression == 1) put_run(rows, 0, 1);

  Bytes head;
  if (bmp.os2) {
    head.put32(12);
    for (const int value : {bmp.width, bmp.height, 1, bmp.bits}) head.put16(value);
  } else {
    head.put32(40);
    head.put32(bmp.width);
    head.put32(bmp.top_down ? -std::int64_t{bmp.height} : bmp.height);
    head.put16(1);
    head.put16(bmp.bits);
    head.put32(bmp.compression);
    head.put32(static_cast<std::int64_t>(rows.size()));
    head.put32(bmp.dots_per_metre);
    head.put32(bmp.dots_per_metre);
    head.put32(0);
    head.put32(0);
  }
  if (bmp.compression == 3) {
    for (const int mask : {0xF800, 0x07E0, 0x001F}) head.put32(mask);
  }
  for (const auto& entry : bmp.palette) {
    head.put(Row(entry.begin(), entry.end()));
    if (!bmp.os2) head.put8(0);
  }

  Bytes file;
  file.put8('B');
  file.put8('M');
  const std::size_t offset = 14 + head.size();
  file.put32(static_cast<std::int64_t>(offset + rows.size()));
  file.put32(0);
  file.put32(static_cast<std::int64_t>(offset));
  file.put(head.bytes());
  file.put(rows.bytes());

  const std::string path = folder + "/" + bmp.name;
  std::FILE* const out = std::fopen(path.c_str(), "wb");
  if (out == nullptr) {
    std::perror(path.c_str());
    return false;
  }
  bool good = std::fwrite(file.bytes().data(), 1, file.size(), out) == file.size();
  good = std::fclose(out) == 0 && good;
  if (!good) std::perror(path.c_str());
  return good;
}

bool write_all(const std::string& folder) {
  const Picture photo = scene::paint_scene(2400, 1800);
  const Picture small = scene::paint_scene(640, 480);
  const Picture odd = scene::paint_scene(401, 301);
  const Picture chart = scene::paint_chart(431, 320);
  const Picture page = scene::paint_page();
  const Palette cube = cube_palette();
  const Palette sixteen = sixteen_colours();
  const Palette ink = {{0, 0, 0}, {255, 255, 255}};

  const auto colour = [](const Picture& picture, int bytes) {
    return [&picture, bytes](int y) { return true_colour_row(picture, y, bytes); };
  };
  const auto words = [](const Picture& picture, int green_bits) {
    return [&picture, green_bits](int y) { return word_row(picture, y, green_bits); };
  };
  return write_bmp(folder, {"photo-24.bmp", 2400, 1800, 24}, colour(photo, 3)) &&
         write_bmp(folder, {"top-down-24.bmp", 401, 301, 24, 0, {}, true}, colour(odd, 3)) &&
         write_bmp(folder, {"scene-32.bmp", 401, 301, 32}, colour(odd, 4)) &&
         write_bmp(folder, {"scene-555.bmp", 640, 480, 16}, words(small, 5)) &&
         write_bmp(folder, {"scene-565.bmp", 401, 301, 16, 3}, words(odd, 6)) &&
         write_bmp(folder, {"palette-8.bmp", 401, 301, 8, 0, cube},
                   [&](int y) { return cube_row(odd, y); }) &&
         write_bmp(folder, {"os2-8.bmp", 640, 480, 8, 0, cube, false, true},
                   [&](int y) { return cube_row(small, y); }) &&
         write_bmp(folder, {"chart-rle8.bmp", 431, 320, 8, 1, cube},
                   [&](int y) { return index_row(chart, y, cube); }) &&
         write_bmp(folder, {"chart-4.bmp", 431, 320, 4, 0, sixteen},
                   [&](int y) { return packed(index_row(chart, y, sixteen), 4); }) &&
         write_bmp(folder, {"page-1.bmp", 2480, 3508, 1, 0, ink, false, false, 11811},
                   [&](int y) { return packed(index_row(page, y, ink), 1); });
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s OUTDIR\n", argv[0]);
    return 2;
  }
  return write_all(argv[1]) ? 0 : 1;
}
