// Operations that change depth and colours.
#include <algorithm>
#include <array>
#include <iterator>

#include "errors.h"
#include "operations.h"
#include "tarnquill.h"

namespace tool {
namespace {

using Value = std::optional<std::string>;

struct Method {
  const char* name;
  std::int32_t(IMG_CALL* run)(std::int32_t image);
};

// The method of that name, the first of them without one.
template <std::size_t kCount>
const Method& choose(const char* option, const Value& name, const Method (&methods)[kCount]) {
  std::string known;
  for (const Method& method : methods) {
    if (!name || *name == method.name) return method;
    known += std::string(known.empty() ? "" : ", ") + method.name;
  }
  refuse(option, *name, "one of " + known);
}

Operation make_invert(const Value& /*value*/, const Arguments& /*arguments*/) {
  return [](const Subject& subject) { return IMG_invert_bitmap(subject.image); };
}

// Whites of 255, which the library's grey makes 253; and its grey of palettes is darker by 40 more.
std::int32_t lighten_grey(std::int32_t image) {
  std::array<std::uint8_t, 256> table{};
  for (int v = 0; v < 256; ++v) {
    table[static_cast<std::size_t>(v)] =
        static_cast<std::uint8_t>(std::min(255, (255 * v + 126) / 253));
  }
  return IMG_tone_table(image, table.data());
}

Operation make_gray(const Value& /*value*/, const Arguments& /*arguments*/) {
  return [](const Subject& subject) -> std::int32_t {
    const ImageShape shape = shape_of(subject.image);
    if (shape.bits <= 16 && !has_colours(subject.image)) {
      return shape.bits == 8 ? IMG_OK : IMG_promote_8(subject.image);
    }
    std::int32_t done = shape.bits < 24 ? IMG_promote_24(subject.image) : IMG_OK;
    if (done >= 0) done = IMG_color_gray(subject.image);
    return done < 0 ? done : lighten_grey(subject.image);
  };
}

Operation make_dither(const Value& value, const Arguments& /*arguments*/) {
  constexpr Method kMethods[] = {{"diffusion", IMG_diffusion_mono},
                                 {"bayer", IMG_bayer_mono},
                                 {"halftone", IMG_halftone_mono},
                                 {"diffusion-color", IMG_diffusion_color},
                                 {"bayer-color", IMG_bayer_color}};
  const auto run = choose("method", value, kMethods).run;
  return [=](const Subject& subject) {
    return shape_of(subject.image).bits == 1 ? IMG_OK : run(subject.image);
  };
}

Operation make_threshold(const Value& value, const Arguments& /*arguments*/) {
  const bool by_otsu = value == "auto";
  std::int32_t level = -1;
  if (value && !by_otsu) {
    const auto number = whole_number(*value);
    if (!number || *number < 0 || *number > 255) refuse("threshold", *value, "0 to 255, or auto");
    level = *number;
  }
  return [=](const Subject& subject) {
    const std::int32_t bits = shape_of(subject.image).bits;
    if (bits == 1) return IMG_OK + 0;
    const bool finds = by_otsu && bits != 16;
    const std::int32_t found = finds ? IMG_find_threshold(subject.image) : level;
    return finds && found < 0 ? found : IMG_thresh_mono(subject.image, found);
  };
}

constexpr Option kReduceOptions[] = {{"colors", 0, "N", "octree: how many, 8 to 256"},
                                     {"bits", 0, "4|8", "octree: bits per pixel of the result"},
                                     {"dither-mode", 0, "N", "fixed: 2 for the system's colours"}};

Operation make_reduce(const Value& value, const Arguments& arguments) {
  const std::int32_t bits = arguments.number("bits", 4, 8).value_or(8);
  if (bits != 4 && bits != 8) throw UsageError("--bits takes 4 or 8");
  const std::int32_t colors = arguments.number("colors", 8, 256).value_or(256);
  const std::int32_t mode = arguments.number("dither-mode", 0, 0x7FFFFFFF).value_or(1);
  constexpr Method kMethods[] = {
      {"octree", nullptr}, {"popularity", IMG_popularity_color}, {"fixed", IMG_mediancut_color}};
  const auto run = choose("method", value, kMethods).run;
  return [=](const Subject& subject) {
    IMGLOW_set_dithermode(mode);
    return run != nullptr ? run(subject.image)
                          : IMG_octree_color(subject.image, bits, nullptr, colors);
  };
}

Operation make_promote(const Value& value, const Arguments& /*arguments*/) {
  const auto bits = whole_number(value.value_or("24"));
  if (bits == 24) return [](const Subject& subject) { return to_24(subject.image); };
  if (bits == 8) return [](const Subject& subject) { return IMG_promote_8(subject.image); };
  if (bits == 32) return [](const Subject& subject) { return IMG_promote_32(subject.image); };
  refuse("bits", *value, "8, 24 or 32");
}

// To this depth from any.
std::int32_t give_bits(const Subject& subject, std::int32_t bits) {
  const std::int32_t now = shape_of(subject.image).bits;
  if (now == bits) return IMG_OK;
  if (bits == 1) return IMG_diffusion_mono(subject.image);
  if (bits == 24) return to_24(subject.image);
  if (bits == 8 && now <= 16) return IMG_promote_8(subject.image);
  if (now == 1) {  // from which no way leads to 4
    const std::int32_t ready = IMG_promote_8(subject.image);
    if (ready < 0) return ready;
  }
  return to_palette(subject, bits, 1 << bits);
}

Operation make_bits(const Value& value, const Arguments& /*arguments*/) {
  const auto bits = whole_number(*value);
  if (bits != 1 && bits != 4 && bits != 8 && bits != 24) refuse("bits", *value, "1, 4, 8 or 24");
  return [=](const Subject& subject) { return give_bits(subject, *bits); };
}

Operation make_colors(const Value& value, const Arguments& /*arguments*/) {
  const auto colours = whole_number(*value);
  if (!colours || *colours < 2 || *colours > 256) refuse("colors", *value, "2 to 256");
  return [=](const Subject& subject) {
    if (shape_of(subject.image).bits < 8) return IMG_OK + 0;
    return to_palette(subject, *colours <= 16 ? 4 : 8, *colours);
  };
}

// What IMG_tone_bitmap and others of its kind take.
std::int32_t make_toned(const Subject& subject) {
  const std::int32_t bits = shape_of(subject.image).bits;
  return bits == 1 || bits == 16 ? IMG_promote_8(subject.image) : IMG_OK;
}

Operation make_tone(const Value& value, const Arguments& /*arguments*/) {
  const std::string text = value.value_or("");
  std::vector<std::int32_t> tone = numbers(text, ",,");
  if (tone.empty()) tone = numbers(text, ",");
  if (tone.size() == 2) tone.push_back(100);
  const auto within = [](std::int32_t v, std::int32_t least, std::int32_t most) {
    return v >= least && v <= most;
  };
  if (tone.size() != 3 || !within(tone[0], -100, 100) || !within(tone[1], -100, 100) ||
      !within(tone[2], 10, 1000)) {
    refuse("tone", text, "BRIGHTNESS,CONTRAST of -100 to 100, and GAMMA of 10 to 1000");
  }
  return [=](const Subject& subject) {
    const std::int32_t ready = make_toned(subject);
    return ready < 0 ? ready : IMG_tone_bitmap(subject.image, tone[0], tone[1], tone[2]);
  };
}

Operation make_auto_levels(const Value& /*value*/, const Arguments& /*arguments*/) {
  return [](const Subject& subject) {
    constexpr std::int32_t kUsualClip = -1;
    const std::int32_t ready = make_toned(subject);
    return ready < 0 ? ready : IMG_auto_levels(subject.image, kUsualClip);
  };
}

Operation make_equalize(const Value& /*value*/, const Arguments& /*arguments*/) {
  return [](const Subject& subject) {
    const std::int32_t ready = make_toned(subject);
    return ready < 0 ? ready : IMG_equalize_bitmap(subject.image);
  };
}

constexpr const char* kEffects = "box|gauss|median|darkest|lightest|unsharp|edges";
constexpr Option kBlurOptions[] = {
    {"radius", 0, "N",
     "of --effect: gauss and unsharp in hundredths of a pixel\n(default 100), others in pixels "
     "(1)"},
    {"amount", 0, "N", "of --effect unsharp: percent of the difference (default 100)"}};

Operation make_filter(const Value& value, const Arguments& arguments) {
  constexpr const char* kKinds[] = {"box",      "gauss",   "median", "darkest",
                                    "lightest", "unsharp", "edges"};
  constexpr std::int32_t kGauss = 1, kUnsharp = 5;
  const std::string name = value.value_or("");
  const auto found = std::find(std::begin(kKinds), std::end(kKinds), name);
  if (found == std::end(kKinds)) {
    refuse("effect", name, "box, gauss, median, darkest, lightest, unsharp or edges");
  }
  const auto kind = static_cast<std::int32_t>(found - std::begin(kKinds));
  const bool in_hundredths = kind == kGauss || kind == kUnsharp;
  const std::int32_t radius =
      arguments.number("radius", 1, 10000).value_or(in_hundredths ? 100 : 1);
  const std::int32_t amount = arguments.number("amount", 0, 1000).value_or(100);
  return [=](const Subject& subject) {
    const std::int32_t ready = make_blendable(subject);
    return ready < 0
               ? ready
               : IMG_filter_bitmap(subject.image, kind, radius, kind == kUnsharp ? amount : 0);
  };
}

constexpr Option kQuantizeOptions[] = {
    {"bits", 0, "4|8", "bits per pixel of the result (default: as few as do)"},
    {"plain", 0, nullptr, "without diffusion"}};

Operation make_quantize(const Value& value, const Arguments& arguments) {
  const auto colours = whole_number(value.value_or("256"));
  if (!colours || *colours < 2 || *colours > 256) refuse("colors", *value, "2 to 256");
  const std::int32_t bits = arguments.number("bits", 4, 8).value_or(*colours <= 16 ? 4 : 8);
  if (bits != 4 && bits != 8) throw UsageError("--bits takes 4 or 8");
  const std::int32_t dither = arguments.has("plain") ? 0 : 1;
  return [=](const Subject& subject) {
    const std::int32_t ready = shape_of(subject.image).bits < 32 ? to_24(subject.image) : IMG_OK;
    return ready < 0 ? ready : IMG_quantize_bitmap(subject.image, bits, *colours, dither);
  };
}

constexpr OperationRow kRows[] = {
    {OperationRow::both,
     "invert",
     {},
     "make light dark and dark light",
     "photo.jpg negative.png",
     {},
     make_invert},
    {OperationRow::both,
     "tone",
     {"by", 0, "B,C,G", "brightness and contrast, -100 to 100, and gamma in\nhundredths"},
     "change brightness and contrast, -100 to 100, and gamma in\nhundredths",
     "--by 10,20,120 photo.jpg lighter.jpg",
     {},
     make_tone},
    {OperationRow::both,
     "auto-levels",
     {},
     "stretch the levels to black and white",
     "photo.jpg full.jpg",
     {},
     make_auto_levels},
    {OperationRow::as_command,
     "filter",
     {"effect", 0, kEffects, "which of them"},
     "blur, sharpen, or take what is around a pixel",
     "--effect unsharp --radius 120 photo.jpg sharp.jpg",
     kBlurOptions,
     make_filter},
    {OperationRow::as_option,
     "effect",
     {nullptr, 0, kEffects, nullptr},
     "blur, sharpen, or take what is around a pixel",
     nullptr,
     kBlurOptions,
     make_filter},
    {OperationRow::both,
     "equalize",
     {},
     "spread the levels evenly",
     "photo.jpg even.jpg",
     {},
     make_equalize},
    {OperationRow::both, "gray", {}, "make 8 bits of grey", "photo.jpg grey.png", {}, make_gray},
    {OperationRow::both,
     "dither",
     {"method", 0, "diffusion|bayer|halftone|diffusion-color|bayer-color",
      "to black and white by the first three (default\ndiffusion), to 16 colours by the others"},
     "make black and white: diffusion, bayer, halftone; or 16\ncolours: diffusion-color, "
     "bayer-color",
     "--method halftone photo.jpg dots.png",
     {},
     make_dither},
    {OperationRow::both,
     "threshold",
     {"level", 0, "N",
      "white is what is brighter than N, 0 to 255; without it the\ndarkest sixth becomes black; "
      "auto: the level that parts\ndark and light best"},
     "make black and white: white is what is brighter than N, 0\nto 255; auto: the level that "
     "parts "
     "dark and light best",
     "--level auto scan.tif page.tif",
     {},
     make_threshold},
    {OperationRow::as_command,
     "reduce",
     {"method", 0, "octree|popularity|fixed", "how (default octree)"},
     "make a palette of its own or a fixed one",
     "--method popularity photo.jpg few.bmp",
     kReduceOptions,
     make_reduce},
    {OperationRow::as_command,
     "quantize",
     {"colors", 0, "N", "how many, 2 to 256 (default 256)"},
     "make the palette that suits a picture best",
     "--colors 16 photo.jpg few.png",
     kQuantizeOptions,
     make_quantize},
    {OperationRow::both,
     "promote",
     {"bits", 0, "8|24|32", "bits per pixel of the result (default 24)"},
     "give more bits per pixel",
     "--bits 24 few.bmp colours.bmp",
     {},
     make_promote},
    {OperationRow::as_option,
     "bits",
     {nullptr, 0, "1|4|8|24", nullptr},
     "give so many bits per pixel, more or less than there are",
     nullptr,
     {},
     make_bits},
    {OperationRow::as_option,
     "colors",
     {nullptr, 0, "N", nullptr},
     "make a palette of at most so many colours, 2 to 256",
     nullptr,
     {},
     make_colors},
};

}  // namespace

std::span<const OperationRow> colour_rows() {
  return kRows;
}

}  // namespace tool
