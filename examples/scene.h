// Painted pictures: a scene with many colours, a chart with few, a page of text.
#pragma once

#include <cstddef>
#include <vector>

namespace scene {

struct Colour {
  double red, green, blue;  // 0 to 1
};

struct Picture {
  int width, height;
  std::vector<Colour> pixels;
  Colour& at(int x, int y) { return pixels[static_cast<std::size_t>(y) * width + x]; }
  const Colour& at(int x, int y) const { return pixels[static_cast<std::size_t>(y) * width + x]; }
};

Picture paint_scene(int width, int height);  // a sky, hills, a floor and three lit balls
Picture paint_chart(int width, int height);  // flat areas of the sixteen display colours
Picture paint_page();                        // A4 at 300 dots per inch, black on white

// A value of 0 to 1 for every point of a grid; looks random, is always the same.
double noise(int x, int y);

}  // namespace scene
