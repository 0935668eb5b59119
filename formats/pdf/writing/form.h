// How a picture stands in a document: its image object, whoever has coded its data.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

#include "core/dib.h"
#include "core/texts.h"
#include "io/stream_writer.h"

namespace tq::pdf::writing {

enum class Coding : std::uint8_t { group4, jpeg, png_rows };
enum class Space : std::uint8_t { grey, rgb, cmyk, indexed };

struct Form {
  Coding coding = Coding::jpeg;
  Space space = Space::rgb;
  std::int32_t width = 0, height = 0;
  int bits = 8;             // of a component
  bool inverted = false;    // a component's greatest value is none of it
  bool is_rgb = false;      // of JPEG: no YCbCr, though nothing in the stream says so
  bool black_is_1 = false;  // of Group 4: 1 is what it codes as black
  bool ends = true;         // likewise: a code that ends it is there
  std::span<const Rgb> palette = {};

  int components() const { return space == Space::rgb ? 3 : space == Space::cmyk ? 4 : 1; }
};

// The entries of an image's dictionary but for its length.
void put_form(StreamWriter& out, const Form& form);

// A length, in units of so many points: at most four decimals, and no exponent.
class LengthText {
 public:
  LengthText(std::int64_t length, std::int64_t unit);
  std::string_view text() const { return {start_, static_cast<std::size_t>(end() - start_)}; }
  LengthText(const LengthText&) = delete;
  LengthText& operator=(const LengthText&) = delete;

 private:
  const char* end() const { return room_ + sizeof room_; }
  char room_[28];
  char* start_;
};

// From UTF-8, as ISO 32000-1, 7.9.2.2 has it: what is ASCII as it is.
void put_text(StreamWriter& out, std::string_view text);

// What the caller has said about a document.
void put_information(StreamWriter& out, const Texts* texts);

}  // namespace tq::pdf::writing
