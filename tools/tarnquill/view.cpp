// tarnquill view: a picture in a terminal, as half blocks of two colours each or as sixels.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <optional>
#include <utility>

#include "command.h"
#include "dib_header.h"
#include "errors.h"
#include "input.h"
#include "library_options.h"
#include "page_choice.h"
#include "progress.h"
#include "system.h"

namespace tool {
namespace {

constexpr Option kOptions[] = {
    kPageOption,
    {"zoom", 0, "N",
     "so many percent of the picture's own size, from its top left corner\n"
     "(default: fitted, and never enlarged)"},
    {"crop", 0, "RECT", "only this part, X,Y,W,H or WxH+X+Y"},
    {"sixel", 0, nullptr, "as sixels, for terminals that show these"},
    {"quiet", 'q', nullptr, "no notes and no progress bar"},
    {"help", 'h', nullptr, "this text"},
};

// Of output that goes to no terminal; a page of A4 has 57 lines then.
constexpr Size kPlainCells = {80, 120};
constexpr Size kCell = {10, 20};  // pixels, where the terminal does not tell
constexpr int kChecker = 8;       // pixels, behind transparent ones
constexpr int kPixelBytes = 4;

struct Picture {
  int width, height;
  std::vector<std::uint8_t> pixels;  // blue, green, red, unused
  const std::uint8_t* at(int x, int y) const {
    return &pixels[(static_cast<std::size_t>(y) * width + x) * kPixelBytes];
  }
  std::uint8_t* at(int x, int y) {
    return const_cast<std::uint8_t*>(std::as_const(*this).at(x, y));
  }
};

// What there is room for, in pixels; a line of the terminal is left for the prompt.
Size window_of(bool sixels) {
  const TerminalSize terminal = terminal_size();
  const bool known = terminal.cells.width > 0 && terminal.cells.height > 1;
  const Size cells = known ? Size{terminal.cells.width, terminal.cells.height - 1} : kPlainCells;
  if (!sixels) return {cells.width, 2 * cells.height};
  if (!known || terminal.pixels.width < 1 || terminal.pixels.height < 1) {
    return {cells.width * kCell.width, cells.height * kCell.height};
  }
  return {terminal.pixels.width,
          std::max(terminal.pixels.height / terminal.cells.height * cells.height, 1)};
}

// What is seen of an image in a window, over squares of two greys.
Picture render(const std::string& label, std::int32_t image, img_view view) {
  img_layout layout = {};
  check(label, IMG_view_layout(image, &view, &layout));
  view.width = std::min(view.width, layout.width);
  view.height = std::min(view.height, layout.height);
  Picture seen{view.width, view.height, {}};
  if (view.fit != IMG_FIT_NONE) view.fit = IMG_FIT_STRETCH;  // the same sides
  seen.pixels.resize(static_cast<std::size_t>(seen.width) * seen.height * kPixelBytes);
  for (int y = 0; y < seen.height; ++y) {
    for (int x = 0; x < seen.width; ++x) {
      const bool dark = (x / kChecker + y / kChecker) % 2 != 0;
      std::memset(seen.at(x, y), dark ? 0x99 : 0x66, kPixelBytes);
    }
  }
  check(label, IMGLOW_render_view(image, &view, IMG_PIXELS_BGRX, seen.pixels.data(),
                                  std::intptr_t{kPixelBytes} * seen.width, 0, seen.height));
  return seen;
}

// Each character is two pixels: its upper half in the one colour, the lower in the other. What a colour
// already is, is not said again.
void print_half_blocks(const Picture& picture) {
  using Colour = std::array<std::uint8_t, 3>;
  const auto colour_at = [&](int x, int y) {
    const std::uint8_t* const pixel = picture.at(x, y);
    return Colour{pixel[2], pixel[1], pixel[0]};
  };
  for (int y = 0; y < picture.height; y += 2) {
    std::string line;
    std::optional<Colour> ink, paper;
    const auto set = [&](std::optional<Colour>& now, const Colour& wanted, const char* which) {
      if (now == wanted) return;
      now = wanted;
      line += which;
      for (const int level : wanted) line += ";" + std::to_string(level);
      line += "m";
    };
    for (int x = 0; x < picture.width; ++x) {
      const Colour upper = colour_at(x, y);
      const bool both = y + 1 < picture.height;
      const Colour lower = both ? colour_at(x, y + 1) : upper;
      if (both) set(paper, lower, "\033[48;2");
      if (both && upper == lower) {
        line += ' ';
        continue;
      }
      set(ink, upper, "\033[38;2");
      line += "\xE2\x96\x80";  // U+2580, upper half block
    }
    std::fputs((line + "\033[0m\n").c_str(), stdout);
  }
}

// An image of 8 bits with the picture's colours, as many as fit into a palette.
struct Indexed {
  std::int32_t image = -1;
  std::array<std::uint8_t, 1024> palette = {};
  explicit Indexed(const Picture& picture) {
    DibHeader header{};
    header.biSize = sizeof header;
    header.biWidth = picture.width;
    header.biHeight = picture.height;
    header.biPlanes = 1;
    header.biBitCount = 24;
    image = check("view", IMG_create_handle_shell(&header));
    std::vector<std::uint8_t> row(static_cast<std::size_t>(row_bytes(picture.width, 24)));
    for (int y = 0; y < picture.height; ++y) {
      for (int x = 0; x < picture.width; ++x)
        std::memcpy(&row[std::size_t{3} * x], picture.at(x, y), 3);
      IMGLOW_put_raster(image, row.data(), y, 0);
    }
    check("view", IMG_octree_color(image, 8, nullptr, 256));
    IMG_get_bitmap_palette(image, palette.data());
  }
  Indexed(const Indexed&) = delete;
  Indexed& operator=(const Indexed&) = delete;
  ~Indexed() { IMG_delete_bitmap(image); }
};

constexpr int kBand = 6;  // rows that a character of sixels holds

// Of one colour in a band: a character for each column, repeated ones by their number.
void add_sixels(std::string& out, const std::vector<std::uint8_t>& columns) {
  for (std::size_t x = 0; x < columns.size();) {
    std::size_t end = x + 1;
    while (end < columns.size() && columns[end] == columns[x]) ++end;
    const char sixel = static_cast<char>('?' + columns[x]);
    if (end - x > 3) {
      out += "!" + std::to_string(end - x) + sixel;
    } else {
      out.append(end - x, sixel);
    }
    x = end;
  }
}

void print_sixels(const Picture& picture) {
  const Indexed indexed(picture);
  // Pixels are square, and there are so many of them.
  std::string text =
      "\033Pq\"1;1;" + std::to_string(picture.width) + ";" + std::to_string(picture.height);
  for (int i = 0; i < 256; ++i) {
    text += "#" + std::to_string(i) + ";2";
    for (const int channel : {2, 1, 0}) {  // percent
      text += ";" + std::to_string((indexed.palette[4 * i + channel] * 100 + 127) / 255);
    }
  }
  std::vector<std::uint8_t> row(static_cast<std::size_t>(row_bytes(picture.width, 8)));
  for (int top = 0; top < picture.height; top += kBand) {
    std::vector<std::vector<std::uint8_t>> bits(256);  // by colour and column
    for (int y = 0; y < kBand && top + y < picture.height; ++y) {
      IMGLOW_get_raster(indexed.image, row.data(), top + y, 0);
      for (int x = 0; x < picture.width; ++x) {
        std::vector<std::uint8_t>& columns = bits[row[x]];
        if (columns.empty()) columns.resize(static_cast<std::size_t>(picture.width));
        columns[x] = static_cast<std::uint8_t>(columns[x] | 1 << y);
      }
    }
    for (int i = 0; i < 256; ++i) {
      if (bits[i].empty()) continue;
      text += "#" + std::to_string(i);
      add_sixels(text, bits[i]);
      text += "$";  // back to the first column
    }
    text += "-";
    std::fputs(text.c_str(), stdout);
    text.clear();
  }
  std::fputs("\033\\\n", stdout);
}

int run_view(const Arguments& arguments) {
  if (arguments.operands().size() != 1) throw UsageError("view needs the name of one file");
  const int page = arguments.number("page", 1, 0xFFFF).value_or(1) - 1;
  const auto percent = arguments.number("zoom", 1, 100000);
  const auto crop = arguments.value("crop");
  const std::optional<Rect> part = crop ? std::optional(parse_rect("crop", *crop)) : std::nullopt;
  const Size window = window_of(arguments.has("sixel"));
  Progress progress(!arguments.has("quiet") && is_terminal(stderr));
  const std::string& name = arguments.operands()[0];
  progress.begin_file(input_label(name));
  const Input input(name);
  input.file_type();
  progress.begin_stage("reading");
  const std::int32_t image = input.decode(page);
  progress.clear();
  report_damage(image, input.label());
  img_view view = {};
  view.bytes = sizeof view;
  view.width = window.width;
  view.height = window.height;
  view.fit = percent ? IMG_FIT_NONE : IMG_FIT_SHRINK;
  view.zoom = 10 * percent.value_or(0);
  view.flags = IMG_VIEW_TOP_LEFT;
  if (part) {
    std::int32_t width = 0, height = 0;
    IMG_bitmap_info(image, &width, &height, nullptr);
    const Rect seen = inside("crop", *part, input.label(), width, height);
    view.source_x = seen.x;
    view.source_y = seen.y;
    view.source_width = seen.width;
    view.source_height = seen.height;
  }
  within_memory(input.label(), [&] {
    const Picture picture = render(input.label(), image, view);
    if (arguments.has("sixel")) {
      print_sixels(picture);
    } else {
      print_half_blocks(picture);
    }
  });
  return flushed(kExitOk);
}

}  // namespace

Command view_command() {
  return {
      "view",
      "FILE",
      "Shows a picture in the terminal.",
      "As half blocks in 24-bit colours, or as sixels, fitted to the terminal; 80 columns where\n"
      "standard output is none. Pages whose dots are not square are shown as they were on paper. "
      "A\n"
      "FILE of - is standard input.\n",
      "scan.tif",
      {std::begin(kOptions), std::end(kOptions)},
      run_view,
  };
}

}  // namespace tool
