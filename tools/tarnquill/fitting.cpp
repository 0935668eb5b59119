// From one depth to another.
#include "fitting.h"

#include "codes.h"
#include "errors.h"
#include "tarnquill.h"

namespace tool {
namespace {

int place_of(int bits) {
  constexpr int kDepths[] = {1, 4, 8, 16, 24, 32};
  for (int i = 0; i < 6; ++i) {
    if (kDepths[i] == bits) return i;
  }
  return 31;
}

bool writes(const img_format& type, int bits) {
  return (type.write_depths >> place_of(bits) & 1) != 0;
}

// The next form on the way to one that is taken; nothing when there is none.
struct Step {
  const char* words;
  std::int32_t (*run)(const Subject& subject);
};
Step next_step(const ImageShape& shape, const img_format& type, bool coloured) {
  const auto by_8 = [](const Subject& s) { return IMG_promote_8(s.image); };
  const auto by_24 = [](const Subject& s) { return to_24(s.image); };
  switch (shape.bits) {
    case 1:
      return {"1 bit becomes grey", by_8};
    case 4:
      if (writes(type, 8) && !coloured) return {"4 bits become 8", by_8};
      return {"4 bits become 24", by_24};
    case 8:
      return {"8 bits become 24", by_24};
    case 16:
      return {"16 bits become 8", by_8};
    case 24:
      return {"the colours become 256", [](const Subject& s) { return to_palette(s, 8, 256); }};
    default:
      return {shape.has_inks ? "inks become colours" : "32 bits become 24", by_24};
  }
}

}  // namespace

bool takes_depth(std::int32_t code, int bits) {
  const auto type = find_code(code);
  return type && bits != 32 && writes(*type, bits);
}

bool takes(std::int32_t code, std::int32_t image) {
  const ImageShape shape = shape_of(image);
  // What it writes of these nobody reads.
  if (code == IMG_TYPE_BMP_RLE) return shape.bits == 4 || shape.bits == 8;
  if (takes_depth(code, shape.bits)) return true;
  // What a format does not hold it refuses before its first byte.
  std::uint8_t nothing = 0;
  return IMG_save_bitmap_block(image, &nothing, 0, code) != IMG_WRONG_DEPTH;
}

std::int32_t fit_to_format(const Subject& subject, std::int32_t code, const std::string& target) {
  const auto type = find_code(code);
  if (!type || (type->flags & IMG_FORMAT_WRITES) == 0) return IMG_OK;  // refused by the save
  std::string words;
  while (!takes(code, subject.image)) {
    const ImageShape shape = shape_of(subject.image);
    const bool only_mono = !writes(*type, 4) && !writes(*type, 8) && !writes(*type, 24);
    if (only_mono) {
      throw Failure(target, IMG_WRONG_DEPTH,
                    std::string(type->title) +
                        " holds black and white only: add --threshold auto "
                        "for text, or --dither diffusion for pictures");
    }
    if (code == IMG_TYPE_BMP_RLE && shape.bits > 8) {
      throw Failure(target, IMG_WRONG_DEPTH,
                    std::string(type->title) +
                        " holds 4 and 8 bits only: add --colors 256, or "
                        "--gray");
    }
    if (shape.bits == 8 && !writes(*type, 24)) return IMG_OK;  // nothing that would help
    const Step step = next_step(shape, *type, has_colours(subject.image));
    if (const std::int32_t done = step.run(subject); done < 0) return done;
    words += (words.empty() ? "" : ", ") + std::string(step.words);
  }
  if (!words.empty()) note(subject, words + " for " + type->title);
  return IMG_OK;
}

}  // namespace tool
