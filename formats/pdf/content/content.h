// What a page paints, as far as pictures go: ISO 32000-1, 7.8 and 8.
#pragma once

#include <cstdint>
#include <span>

#include "core/memory.h"
#include "formats/pdf/objects/file.h"
#include "formats/pdf/objects/syntax.h"

namespace tq::pdf::content {

// (x, y) becomes (a x + c y + e, b x + d y + f).
struct Matrix {
  double a = 1, b = 0, c = 0, d = 1, e = 0, f = 0;
};
Matrix operator*(const Matrix& first, const Matrix& then);

struct Rectangle {
  double left = 0, bottom = 0, right = 0, top = 0;

  bool is_empty() const { return !(left < right && bottom < top); }
  double area() const { return is_empty() ? 0 : (right - left) * (top - bottom); }
};
Rectangle intersection(const Rectangle& one, const Rectangle& other);
// What a rectangle becomes, and what is around that.
Rectangle transformed(const Rectangle& rectangle, const Matrix& matrix);

// A picture on a page.
struct Painted {
  Matrix
      matrix;  // from the unit square, whose top is the first row, to the page before it is turned
  Rectangle clip;            // on the page
  objects::Reference image;  // number 0: an inline image
  // Of an inline image: keys and values as they stand, abbreviated perhaps, and the coded bytes. Names
  // of colour spaces have been looked up.
  objects::Value dictionary;
  std::span<const std::uint8_t> data;
  std::uint32_t fill = 0;    // 0x00RRGGBB, for masks
  std::uint8_t alpha = 255;  // constant; 255 is opaque
};

// All that a page paints, in that order.
class Painting {
 public:
  Painting() = default;
  Painting(const Painting&) = delete;
  Painting& operator=(const Painting&) = delete;
  ~Painting();

  std::span<const Painted> pictures() const {
    return {reinterpret_cast<const Painted*>(block_.data()), count_};
  }
  // Text, lines, areas that are seen, and are no pictures.
  bool has_more() const { return has_more_; }

  Status add(const Painted& picture);  // out_of_memory
  void set_more(bool more) { has_more_ = more; }
  // Room that lasts as long as the painting; null: out of memory.
  std::uint8_t* allocate(std::size_t bytes);

 private:
  GlobalBlock block_;
  std::size_t count_ = 0;
  bool has_more_ = false;
  std::uint8_t* kept_ = nullptr;  // blocks, each of which begins with the address of the next
};

// What a page's contents paint within a box. out_of_memory, read_failed; contents that make no sense
// end where they stop making it.
Status read_contents(objects::File& file, const objects::Object& page,
                     const objects::Object& resources, const Rectangle& box, Painting& painting);

}  // namespace tq::pdf::content
