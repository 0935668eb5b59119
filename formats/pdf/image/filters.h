// What a stream's dictionary says about its coding: ISO 32000-1, 7.4.
#pragma once

#include "coding/ccitt/ccitt.h"
#include "coding/filters.h"
#include "formats/pdf/objects/file.h"

namespace tq::pdf::image {

// What codes pictures, and stands last of all filters.
enum class PictureCoding : std::uint8_t { none, fax, jpeg, jbig2, jpeg2000 };

struct FaxForm {
  ccitt::Coding coding{};
  std::int32_t columns = 1728;
  bool black_is_1 = false;
};

struct StreamForm {
  std::array<coding::FilterStep, coding::FilterChain::kMost> steps;
  int count = 0;
  PictureCoding last = PictureCoding::none;
  FaxForm fax;
  int jpeg_transform = -1;  // of colours: 0 none, 1 done, -1 not said
  objects::Reference jbig2_globals{};

  std::span<const coding::FilterStep> filters() const { return std::span(steps).first(count); }
};

// `is_inline`: keys may be abbreviated. unsupported, out_of_memory, read_failed.
Status read_form(objects::File& file, const objects::Value& dictionary, bool is_inline,
                 StreamForm& form);

// The bytes of a stream as they were before they were coded.
class Filters {
 public:
  Filters() = default;
  Filters(const Filters&) = delete;
  Filters& operator=(const Filters&) = delete;

  // unsupported for one that codes a picture as well.
  Status open(objects::File& file, const objects::Object& stream);

  std::span<const std::uint8_t> next_piece() { return chain_.next_piece(); }
  // out_of_memory or read_failed when they ended for that.
  Status status() const;

 private:
  objects::StreamSource source_;
  coding::FilterChain chain_;
};

}  // namespace tq::pdf::image
