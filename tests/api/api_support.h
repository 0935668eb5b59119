// BMP files as any program writes them, and images as the public interface shows them.
#pragma once

#include <gmock/gmock.h>
#include <tarnquill.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace tq::api_test {

using Bytes = std::vector<std::uint8_t>;

struct Picture {
  std::int32_t width = 0, height = 0, bits = 0;
  std::vector<Bytes> rows = {};  // from the top, padded to 4 bytes
  Bytes palette = {};
};

inline void put(Bytes& bytes, std::uint32_t value, int count) {
  for (int i = 0; i < count; ++i) bytes.push_back(static_cast<std::uint8_t>(value >> 8 * i));
}

inline std::uint32_t word(const Bytes& bytes, std::size_t at) {
  return bytes.at(at) | std::uint32_t{bytes.at(at + 1)} << 8 |
         std::uint32_t{bytes.at(at + 2)} << 16 | std::uint32_t{bytes.at(at + 3)} << 24;
}

// A pattern in which no two pixels near each other are equal; padding 0.
inline Picture make_picture(std::int32_t width, std::int32_t height, std::int32_t bits) {
  Picture picture{.width = width, .height = height, .bits = bits};
  const std::int32_t used = width * bits;
  for (std::int32_t y = 0; y < height; ++y) {
    Bytes row(static_cast<std::size_t>((used + 31) / 32 * 4));
    for (std::int32_t bit = 0; bit < used; ++bit) {
      const int on = (bit * 5 + y * 3 + bit / 7) >> 1 & 1;
      row[static_cast<std::size_t>(bit / 8)] |= static_cast<std::uint8_t>(on << (7 - bit % 8));
    }
    picture.rows.push_back(row);
  }
  if (bits <= 8) {
    const int entries = 1 << bits;
    for (int i = 0; i < entries; ++i) {
      const auto level = static_cast<std::uint32_t>(i * 255 / (entries - 1));
      const std::uint32_t red = bits == 1 ? level : 255 - level;
      put(picture.palette, level | level << 8 | red << 16, 4);
    }
  }
  return picture;
}

inline Bytes header_and_palette(const Picture& picture) {
  Bytes bytes;
  put(bytes, 40, 4);
  put(bytes, static_cast<std::uint32_t>(picture.width), 4);
  put(bytes, static_cast<std::uint32_t>(picture.height), 4);
  put(bytes, 1, 2);
  put(bytes, static_cast<std::uint32_t>(picture.bits), 2);
  put(bytes, 0, 4);
  put(bytes,
      static_cast<std::uint32_t>((picture.width * picture.bits + 31) / 32 * 4 * picture.height), 4);
  bytes.resize(40);
  bytes.insert(bytes.end(), picture.palette.begin(), picture.palette.end());
  return bytes;
}

inline Bytes packed_dib(const Picture& picture) {
  Bytes bytes = header_and_palette(picture);
  for (auto row = picture.rows.rbegin(); row != picture.rows.rend(); ++row) {
    bytes.insert(bytes.end(), row->begin(), row->end());
  }
  return bytes;
}

inline Bytes bmp_file(const Picture& picture) {
  const Bytes dib = packed_dib(picture);
  Bytes bytes = {'B', 'M'};
  put(bytes, static_cast<std::uint32_t>(14 + dib.size()), 4);
  put(bytes, 0, 4);
  put(bytes, static_cast<std::uint32_t>(54 + picture.palette.size()), 4);
  bytes.insert(bytes.end(), dib.begin(), dib.end());
  return bytes;
}

// What the interface says an image is. Padding is cleared: run lists have none of their own.
inline Picture picture_of(std::int32_t image) {
  Picture picture;
  EXPECT_NE(IMG_bitmap_info(image, &picture.width, &picture.height, &picture.bits), IMG_BAD_HANDLE);
  const std::int32_t used = picture.width * picture.bits;
  for (std::int32_t y = 0; y < picture.height; ++y) {
    Bytes row(static_cast<std::size_t>((used + 31) / 32 * 4));
    EXPECT_EQ(IMGLOW_get_raster(image, row.data(), y, 0), IMG_OK);
    for (std::size_t bit = static_cast<std::size_t>(used); bit < row.size() * 8; ++bit) {
      row[bit / 8] &= static_cast<std::uint8_t>(~(0x80 >> bit % 8));
    }
    picture.rows.push_back(row);
  }
  picture.palette.resize(static_cast<std::size_t>(IMG_bitmap_palette(image)) * 4);
  EXPECT_EQ(IMGLOW_get_palette(image, picture.palette.data()), IMG_OK);
  return picture;
}

// Part of a picture; x must start a byte.
inline Picture cut(const Picture& from, std::int32_t x, std::int32_t y, std::int32_t width,
                   std::int32_t height) {
  Picture part{.width = width, .height = height, .bits = from.bits, .palette = from.palette};
  const auto first = static_cast<std::size_t>(x * from.bits / 8);
  const std::int32_t used = width * from.bits;
  for (std::int32_t i = y; i < y + height; ++i) {
    Bytes row(static_cast<std::size_t>((used + 31) / 32 * 4));
    const Bytes& source = from.rows[static_cast<std::size_t>(i)];
    for (std::int32_t bit = 0; bit < used; bit += 1) {
      const auto at = static_cast<std::size_t>(bit);
      row[at / 8] |= static_cast<std::uint8_t>(source[first + at / 8] & 0x80 >> at % 8);
    }
    part.rows.push_back(row);
  }
  return part;
}

inline void expect_same(const Picture& got, const Picture& wanted) {
  EXPECT_EQ(got.width, wanted.width);
  EXPECT_EQ(got.height, wanted.height);
  EXPECT_EQ(got.bits, wanted.bits);
  EXPECT_EQ(got.palette, wanted.palette);
  EXPECT_EQ(got.rows, wanted.rows);
}

inline std::int32_t load(const Bytes& file) {
  return IMG_decompress_bitmap_block(file.data(), file.size(), 0);
}

// Every setting as a fresh process has it, every image gone; a folder for files.
class ApiTest : public testing::Test {
 protected:
  ApiTest() {
    const auto* test = testing::UnitTest::GetInstance()->current_test_info();
    folder_ = std::filesystem::temp_directory_path() /
              (std::string("tarnquill-api-") + test->name() + std::to_string(std::rand()));
    std::filesystem::create_directory(folder_);
  }
  ~ApiTest() override {
    IMG_set_statusbar(0, nullptr, 0);
    IMGLOW_set_fileio(nullptr, nullptr, nullptr);
    IMG_set_encrypt(0, 0);
    IMGLOW_set_decomp_reduction(0);
    IMGLOW_set_decompsize(0, 0);
    IMGLOW_set_decomp_rect(0, 0, 0, 0);
    for (std::int32_t image = 0; image < 10000; ++image) IMG_delete_bitmap(image);
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }
  std::string file(const char* name) const { return (folder_ / name).string(); }
  static Bytes content(const std::string& name) {
    std::ifstream in(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  static void write(const std::string& name, const Bytes& bytes) {
    std::ofstream(name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
  }

 private:
  std::filesystem::path folder_;
};

}  // namespace tq::api_test
