// Colour spaces of pictures: ISO 32000-1, 8.6. Without profiles: what is calibrated is taken as the
// device's own.
#pragma once

#include <array>

#include "core/dib.h"
#include "formats/pdf/objects/file.h"
#include "pixels/lab.h"

namespace tq::pdf::image {

class ColourSpace {
 public:
  enum class Kind : std::uint8_t { grey, black, rgb, cmyk, lab, tint, indexed };

  // A device space of so many components.
  static ColourSpace of_components(int components);

  // A name, or an array; `owner` is the object in whose text it stands. unsupported, bad_image,
  // out_of_memory.
  Status read(objects::File& file, const objects::Value& value, const objects::Object& owner);

  Kind kind() const { return kind_; }
  int components() const { return components_; }
  bool is_indexed() const { return kind_ == Kind::indexed; }
  // Levels of grey, or of black ink.
  bool is_grey() const { return kind_ == Kind::grey || kind_ == Kind::black; }
  bool is_plain() const { return kind_ == Kind::grey || kind_ == Kind::rgb || kind_ == Kind::cmyk; }

  // What a component may be; samples are taken for this range unless an array says otherwise. Those of
  // an indexed space are indices.
  double lowest(int component) const;
  double highest(int component) const;
  // Of 255, where in the range a value is; of an indexed space the index.
  std::uint8_t level(int component, double value) const;

  // What so many levels look like.
  Rgb colour(const std::uint8_t* levels) const;

 private:
  Status read_at_depth(objects::File& file, const objects::Value& value,
                       const objects::Object& owner, int depth);
  Status read_indexed(objects::File& file, objects::Items items, const objects::Object& owner,
                      int depth);
  Status read_tint(objects::File& file, objects::Items items, const objects::Object& owner,
                   int depth);
  Status read_lab(objects::File& file, const objects::Value& parameters);
  bool set_named(const objects::Value& name);

  Kind kind_ = Kind::grey;
  int components_ = 1;
  std::array<Rgb, 256> table_{};  // of a tint or an index
  pixels::LabColours lab_;
  std::array<double, 4> lab_range_ = {-100, 100, -100, 100};
};

}  // namespace tq::pdf::image
