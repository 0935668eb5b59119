// What info --analyse finds on a page.
#include "analyse.h"

#include <cstdio>

#include "errors.h"
#include "operations.h"
#include "options.h"
#include "tarnquill.h"

namespace tool {
namespace {

std::string degrees(std::int32_t hundredths) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", hundredths / 100.0);
  return text;
}

using FindAngle = std::int32_t(IMG_CALL*)(std::int32_t image, std::int32_t* angle,
                                          std::int32_t* confidence);
using FindRect = std::int32_t(IMG_CALL*)(std::int32_t image, std::int32_t* x, std::int32_t* y,
                                         std::int32_t* width, std::int32_t* height);

std::int32_t IMG_CALL find_skew(std::int32_t image, std::int32_t* angle, std::int32_t* confidence) {
  constexpr std::int32_t kUsualRange = 0;
  return IMG_find_skew(image, kUsualRange, angle, confidence);
}

std::string turn(const std::string& label, std::int32_t image, FindAngle find) {
  std::int32_t angle = 0, confidence = 0;
  if (check(label, find(image, &angle, &confidence)) == 0) return "null";
  return "{\"degrees\": " + degrees(angle) + ", \"confidence\": " + std::to_string(confidence) +
         "}";
}

std::string rectangle(const std::string& label, std::int32_t image, FindRect find) {
  Rect rect{};
  if (check(label, find(image, &rect.x, &rect.y, &rect.width, &rect.height)) == 0) return "null";
  return "[" + std::to_string(rect.x) + ", " + std::to_string(rect.y) + ", " +
         std::to_string(rect.width) + ", " + std::to_string(rect.height) + "]";
}

}  // namespace

std::string analysis(const std::string& label, std::int32_t image) {
  if (shape_of(image).bits == 16) check(label, IMG_promote_8(image));
  const bool blank = check(label, IMG_is_blank(image, 0)) == 1;
  return "{\"skew\": " + turn(label, image, find_skew) +
         ", \"orientation\": " + turn(label, image, IMG_find_orientation) +
         ", \"content\": " + rectangle(label, image, IMG_find_content) +
         ", \"paper\": " + rectangle(label, image, IMG_find_paper) +
         ", \"blank\": " + (blank ? "true" : "false") +
         ", \"threshold\": " + std::to_string(check(label, IMG_find_threshold(image))) + "}";
}

}  // namespace tool
