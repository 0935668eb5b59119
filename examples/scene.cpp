// The painters.
#include "scene.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>

#include "letters.h"

namespace scene {

double noise(int x, int y) {
  std::uint32_t h =
      static_cast<std::uint32_t>(x) * 0x9E3779B1u + static_cast<std::uint32_t>(y) * 0x85EBCA77u;
  h ^= h >> 15;
  h *= 0x2C1B3C6Du;
  h ^= h >> 12;
  return static_cast<double>(h & 0xFFFF) / 65535;
}

namespace {

Colour mix(const Colour& a, const Colour& b, double share) {
  return {a.red + (b.red - a.red) * share, a.green + (b.green - a.green) * share,
          a.blue + (b.blue - a.blue) * share};
}

Colour scaled(const Colour& c, double factor) {
  return {c.red * factor, c.green * factor, c.blue * factor};
}

double smooth_noise(double x, double y) {
  const double column = std::floor(x);
  const double row = std::floor(y);
  const auto eased = [](double t) { return t * t * (3 - 2 * t); };
  const double u = eased(x - column);
  const double v = eased(y - row);
  const int i = static_cast<int>(column);
  const int j = static_cast<int>(row);
  const double above = noise(i, j) * (1 - u) + noise(i + 1, j) * u;
  const double below = noise(i, j + 1) * (1 - u) + noise(i + 1, j + 1) * u;
  return above * (1 - v) + below * v;
}

// ---- The scene: sky, hills, a floor and three lit balls. x and y run from 0 to 1. ----

struct Ball {
  double x, y, radius;
  Colour colour;
};

constexpr Ball kBalls[] = {
    {0.26, 0.66, 0.17, {0.85, 0.20, 0.15}},
    {0.58, 0.60, 0.22, {0.15, 0.45, 0.80}},
    {0.85, 0.74, 0.11, {0.95, 0.75, 0.15}},
};
constexpr double kHorizon = 0.58;

Colour sky(double x, double y) {
  const Colour clear = mix({0.20, 0.42, 0.78}, {0.93, 0.85, 0.72}, y / kHorizon);
  const double clouds = smooth_noise(5 * x, 14 * y) * 0.6 + smooth_noise(11 * x, 30 * y) * 0.4;
  const Colour clouded = mix(clear, {1, 1, 1}, std::clamp(2.2 * (clouds - 0.5), 0.0, 0.8));
  const double to_sun = std::hypot(x - 0.8, (y - 0.16) * 0.75);
  return mix({1, 0.97, 0.85}, clouded, std::clamp((to_sun - 0.05) * 30, 0.0, 1.0));
}

Colour ground(double x, double y) {
  const double depth = 1 / (y - kHorizon + 0.04);
  const double u = (x - 0.5) * depth * 0.9;
  const bool dark =
      (static_cast<int>(std::floor(u)) + static_cast<int>(std::floor(depth))) % 2 != 0;
  const Colour tile = dark ? Colour{0.30, 0.34, 0.32} : Colour{0.80, 0.78, 0.70};
  Colour lit = scaled(tile, 0.85 + 0.15 * smooth_noise(60 * x, 60 * y));
  for (const Ball& ball : kBalls) {
    const double across = (x - ball.x + 0.06) / (ball.radius * 0.8);
    const double along = (y - ball.y - ball.radius * 0.95) / (ball.radius * 0.25);
    lit = scaled(lit, 1 - 0.6 * std::exp(-(across * across + along * along)));
  }
  return lit;
}

Colour backdrop(double x, double y) {
  const double hills =
      kHorizon - 0.10 * smooth_noise(4 * x + 3, 7) - 0.03 * smooth_noise(17 * x, 3);
  if (y < hills) return sky(x, y);
  if (y >= kHorizon) return ground(x, y);
  return mix({0.16, 0.30, 0.20}, {0.40, 0.52, 0.46}, smooth_noise(40 * x, 40 * y));
}

Colour scene(double x, double y) {
  for (const Ball& ball : kBalls) {
    const double dx = (x - ball.x) / (ball.radius * 0.75);
    const double dy = (y - ball.y) / ball.radius;
    const double outside = dx * dx + dy * dy;
    if (outside > 1) continue;
    const double dz = std::sqrt(1 - outside);
    const double light = std::max(0.0, 0.45 * dx - 0.65 * dy + 0.6 * dz);
    const double shine = std::pow(light, 40);
    return mix(scaled(ball.colour, 0.18 + 0.85 * light), {1, 1, 1}, std::min(shine, 1.0));
  }
  return backdrop(x, y);
}

void write_text(Picture& picture, const char* text, int left, int top, int scale, Colour colour) {
  letters::draw(text, [&](int x, int y) {
    for (int i = 0; i < scale * scale; ++i) {
      const int px = left + x * scale + i % scale;
      const int py = top + y * scale + i / scale;
      if (px >= 0 && px < picture.width && py >= 0 && py < picture.height)
        picture.at(px, py) = colour;
    }
  });
}

}  // namespace

Picture paint_scene(int width, int height) {
  Picture picture{width, height, std::vector<Colour>(static_cast<std::size_t>(width) * height)};
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double grain = 0.97 + 0.06 * noise(x, y);
      picture.at(x, y) = scaled(scene((x + 0.5) / width, (y + 0.5) / height), grain);
    }
  }
  const int scale = std::max(1, width / 160);
  write_text(picture, "Tarnquill", 2 * scale, 2 * scale, scale, {0.10, 0.12, 0.20});
  return picture;
}

// A drawing of few colours and flat areas.
Picture paint_chart(int width, int height) {
  Picture picture{width, height,
                  std::vector<Colour>(static_cast<std::size_t>(width) * height, Colour{1, 1, 1})};
  constexpr Colour kBars[] = {{0.5, 0, 0}, {0, 0.5, 0}, {0, 0, 0.5}, {0.5, 0.5, 0}, {0, 0.5, 0.5},
                              {1, 0, 0},   {0, 1, 0},   {0, 0, 1},   {1, 1, 0},     {0, 1, 1}};
  const int bars = static_cast<int>(std::size(kBars));
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const int bar = x * bars / width;
      const int top = height - height * (30 + (bar * 37) % 60) / 100;
      const bool gap = (x * bars) % width < width / 5;
      if (y >= top && !gap) picture.at(x, y) = kBars[bar];
      if (y % (height / 8) == 0 && y < top) picture.at(x, y) = {0.75, 0.75, 0.75};
    }
  }
  write_text(picture, "sixteen colours", 8, 8, std::max(1, width / 160), {0, 0, 0});
  return picture;
}

// An A4 page of text.
Picture paint_page() {
  constexpr int kWidth = 2480, kHeight = 3508, kMargin = 250;
  constexpr int kLine = 62, kLetter = 5, kTitleLetter = 18;  // in letters; in pixels a dot
  constexpr const char* kParagraphs[] = {
      "This page was drawn dot by dot, 300 to the inch: eight million seven hundred thousand dots, "
      "each of them black or white. As plain bits they take a megabyte, though most of the page is "
      "paper.",
      "In memory a row is a list of the places where its colour changes, white coming first. A row "
      "of paper has none. A row through a line of letters has a hundred or two, and where its bits "
      "would be fewer the bits are kept. What is done to pages is done to these lists.",
      "In a file the fourth group of facsimile codes says of each row how it differs from the one "
      "above. Where the stem of a letter goes straight down, one bit is enough for each of its "
      "edges, and so a page like this one takes a few thousandths of a second and a small part of "
      "its megabyte.",
      "A small copy that takes every fourth dot leaves holes in the letters. The mean of all the "
      "dots that fall on a pixel makes their edges grey instead, and four dots to a pixel in each "
      "direction can still be read, as here.",
      "Photographs have no such rows. To print one in black and white its greys are broken up: by "
      "a pattern that is the same everywhere, or by handing on to the neighbours what a dot came "
      "out too dark or too light.",
      ("Whoever looks at the sheet sees copies. The page itself lies beside it, and so does the "
       "document that was made of it, in which other programs find the same dots.")};
  Picture page{kWidth, kHeight,
               std::vector<Colour>(static_cast<std::size_t>(kWidth) * kHeight, Colour{1, 1, 1})};
  const Colour ink = {0, 0, 0};
  write_text(page, "A page of text", kMargin, 260, kTitleLetter, ink);
  for (int x = kMargin; x < kWidth - kMargin; ++x) {
    for (int y = 430; y < 438; ++y) page.at(x, y) = ink;
  }
  int top = 540;
  for (std::string_view rest : kParagraphs) {
    while (!rest.empty()) {
      std::size_t end = rest.size() > kLine ? rest.rfind(' ', kLine) : rest.size();
      write_text(page, std::string(rest.substr(0, end)).c_str(), kMargin, top, kLetter, ink);
      rest.remove_prefix(std::min(end + 1, rest.size()));
      top += 74;
    }
    top += 60;
  }
  return page;
}

}  // namespace scene
