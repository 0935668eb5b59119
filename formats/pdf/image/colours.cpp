// From a name or an array to what components look like. Everything is brought to levels of 255.
#include "formats/pdf/image/colours.h"

#include <algorithm>
#include <cmath>

#include "core/numbers.h"
#include "formats/pdf/image/filters.h"
#include "formats/pdf/image/tint.h"
#include "pixels/rows.h"

namespace tq::pdf::image {
namespace {

using objects::File;
using objects::Items;
using objects::Object;
using objects::Value;
using ValueKind = objects::Kind;

constexpr int kDeepest = 4;  // spaces over spaces

// The next item, wherever it stands; `owner` becomes the object that it stands in.
Status next_item(File& file, Items& items, Object& room, Value& value, const Object*& owner) {
  value = items.next() ? items.value() : Value();
  if (!value.is(ValueKind::reference)) return kOk;
  TQ_TRY(file.resolve(value, room));
  owner = &room;
  return kOk;
}

// As many bytes of a string or a stream as there are, at most those of the room.
Status read_bytes(File& file, const Value& value, const Object& owner, bool is_own,
                  std::span<std::uint8_t> room, std::ptrdiff_t& count) {
  count = 0;
  if (value.is(ValueKind::string)) {
    TQ_TRY(file.read_string(owner, value, room, count));
    count = std::min(count, std::ssize(room));
    return kOk;
  }
  if (!is_own || !owner.is_stream()) return kOk;
  Filters filters;
  TQ_TRY(filters.open(file, owner));
  while (count < std::ssize(room)) {
    const auto piece = filters.next_piece();
    if (piece.empty()) break;
    const std::ptrdiff_t here = std::min(std::ssize(piece), std::ssize(room) - count);
    std::copy_n(piece.begin(), here, room.begin() + count);
    count += here;
  }
  return filters.status();
}

bool names_any(const Value& name, std::initializer_list<const char*> names) {
  return std::ranges::any_of(names, [&](const char* one) { return name.is_name(one); });
}

}  // namespace

ColourSpace ColourSpace::of_components(int components) {
  ColourSpace space;
  space.kind_ = components == 1 ? Kind::grey : components == 3 ? Kind::rgb : Kind::cmyk;
  space.components_ = components;
  return space;
}

bool ColourSpace::set_named(const Value& name) {
  const int components = names_any(name, {"DeviceGray", "G", "CalGray"})      ? 1
                         : names_any(name, {"DeviceRGB", "RGB", "CalRGB"})    ? 3
                         : names_any(name, {"DeviceCMYK", "CMYK", "CalCMYK"}) ? 4
                                                                              : 0;
  if (components != 0) *this = of_components(components);
  return components != 0;
}

Status ColourSpace::read(File& file, const Value& value, const Object& owner) {
  return read_at_depth(file, value, owner, 0);
}

Status ColourSpace::read_at_depth(File& file, const Value& given, const Object& given_owner,
                                  int depth) {
  if (depth == kDeepest) return StatusCode::unsupported;
  Object room;
  const Object* owner = &given_owner;
  Value value = given;
  if (value.is(ValueKind::reference)) {
    TQ_TRY(file.resolve(value, room));
    owner = &room;
  }
  if (value.is(ValueKind::name)) return set_named(value) ? StatusCode::ok : StatusCode::unsupported;
  Items items = value.items();
  Object family_room;
  Value family;
  const Object* ignored = owner;
  TQ_TRY(next_item(file, items, family_room, family, ignored));
  if (set_named(family)) return kOk;
  if (names_any(family, {"Indexed", "I"})) return read_indexed(file, items, *owner, depth);
  if (names_any(family, {"Separation", "DeviceN"})) return read_tint(file, items, *owner, depth);
  Object parameters_room;
  Value parameters;
  TQ_TRY(next_item(file, items, parameters_room, parameters, ignored));
  if (family.is_name("Lab")) return read_lab(file, parameters);
  if (!family.is_name("ICCBased")) return StatusCode::unsupported;
  Object number_room;
  Value components = parameters["N"];
  TQ_TRY(file.resolve(components, number_room));
  const std::int32_t count = components.small_integer();
  if (count != 1 && count != 3 && count != 4) return StatusCode::unsupported;
  *this = of_components(count);
  return kOk;
}

Status ColourSpace::read_lab(File& file, const Value& parameters) {
  kind_ = Kind::lab;
  components_ = 3;
  lab_.prepare();
  Object room;
  Value range = parameters["Range"];
  TQ_TRY(file.resolve(range, room));
  int i = 0;
  for (Items items = range.items(); i < 4 && items.next(); ++i) {
    lab_range_[i] = items.value().number();
  }
  const bool usable = lab_range_[0] < lab_range_[1] && lab_range_[2] < lab_range_[3];
  return usable ? StatusCode::ok : StatusCode::bad_image;
}

Status ColourSpace::read_indexed(File& file, Items items, const Object& owner, int depth) {
  Object base_room, high_room, table_room;
  const Object *base_owner = &owner, *high_owner = &owner, *table_owner = &owner;
  Value base_value, high, table;
  TQ_TRY(next_item(file, items, base_room, base_value, base_owner));
  TQ_TRY(next_item(file, items, high_room, high, high_owner));
  TQ_TRY(next_item(file, items, table_room, table, table_owner));
  ColourSpace base;
  TQ_TRY(base.read_at_depth(file, base_value, *base_owner, depth + 1));
  if (base.is_indexed()) return StatusCode::unsupported;
  std::array<std::uint8_t, 4 * 256> levels{};
  std::ptrdiff_t there = 0;
  TQ_TRY(read_bytes(file, table, *table_owner, table_owner == &table_room, levels, there));
  kind_ = Kind::indexed;
  components_ = 1;
  // What the table does not have is black.
  const std::ptrdiff_t entries = std::clamp(high.small_integer(), 0, 255) + 1;
  const std::ptrdiff_t whole = std::min(there / base.components(), entries);
  for (std::ptrdiff_t i = 0; i < whole; ++i) {
    table_[i] = base.colour(levels.data() + i * base.components());
  }
  return kOk;
}

Status ColourSpace::read_tint(File& file, Items items, const Object& owner, int depth) {
  Object name_room, alternate_room, function_room;
  const Object *ignored = &owner, *alternate_owner = &owner;
  Value name, alternate_value;
  TQ_TRY(next_item(file, items, name_room, name, ignored));
  if (name.is(ValueKind::array)) {  // of a DeviceN
    Items names = name.items();
    name = names.next() ? names.value() : Value();
    if (names.next()) return StatusCode::unsupported;
  }
  kind_ = Kind::black;
  components_ = 1;
  if (names_any(name, {"Black", "All"})) return kOk;
  kind_ = Kind::tint;
  if (name.is_name("None")) {
    table_.fill({255, 255, 255, 0});
    return kOk;
  }
  TQ_TRY(next_item(file, items, alternate_room, alternate_value, alternate_owner));
  ColourSpace alternate;
  TQ_TRY(alternate.read_at_depth(file, alternate_value, *alternate_owner, depth + 1));
  if (alternate.is_indexed()) return StatusCode::unsupported;
  TintFunction function;
  TQ_TRY(function.read(file, items.next() ? items.value() : Value(), alternate.components()));
  for (int i = 0; i < 256; ++i) {
    std::array<double, TintFunction::kMostOutputs> values{};
    function.evaluate(i / 255.0, values);
    std::uint8_t levels[TintFunction::kMostOutputs] = {};
    for (int c = 0; c < alternate.components(); ++c) levels[c] = alternate.level(c, values[c]);
    table_[i] = alternate.colour(levels);
  }
  return kOk;
}

double ColourSpace::lowest(int component) const {
  return kind_ == Kind::lab && component > 0 ? lab_range_[2 * component - 2] : 0;
}
double ColourSpace::highest(int component) const {
  if (kind_ == Kind::indexed) return 255;
  if (kind_ != Kind::lab) return 1;
  return component == 0 ? 100 : lab_range_[2 * component - 1];
}

std::uint8_t ColourSpace::level(int component, double value) const {
  const double low = lowest(component), share = (value - low) / (highest(component) - low);
  return byte(static_cast<int>(std::floor(255 * std::clamp(share, 0.0, 1.0) + 0.5)));
}

Rgb ColourSpace::colour(const std::uint8_t* levels) const {
  switch (kind_) {
    case Kind::grey:
      return {levels[0], levels[0], levels[0], 0};
    case Kind::black: {
      const std::uint8_t light = byte(255 - levels[0]);
      return {light, light, light, 0};
    }
    case Kind::rgb:
      return {levels[2], levels[1], levels[0], 0};
    case Kind::cmyk: {
      std::uint8_t bgr[3];
      pixels::inks_to_colours({levels, 4}, 1, bgr);
      return {bgr[0], bgr[1], bgr[2], 0};
    }
    case Kind::lab: {
      const auto value = [&](int i) {
        return lowest(i) + levels[i] * (highest(i) - lowest(i)) / 255;
      };
      return lab_.mix(value(0), value(1), value(2));
    }
    case Kind::tint:
    case Kind::indexed:
      return table_[levels[0]];
  }
  return {};
}

}  // namespace tq::pdf::image
