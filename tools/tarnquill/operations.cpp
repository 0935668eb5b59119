// The chain of operations, from the command line to functions.
#include "operations.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "command.h"
#include "dib_header.h"
#include "errors.h"
#include "progress.h"
#include "tarnquill.h"

namespace tool {
namespace {

const OperationRow* find_row(const std::string& name, OperationRow::Where other_than) {
  const OperationRow* found = nullptr;
  for_each_operation([&](const OperationRow& row) {
    if (name == row.name && row.where != other_than) found = &row;
  });
  return found;
}

}  // namespace

void note(const Subject& subject, const std::string& what) {
  if (!subject.quiet) complain(printable(subject.label) + ": " + what);
}

void tell(const Subject& subject, const std::string& what) {
  if (subject.verbose) say(printable(subject.label) + ": " + what);
}

std::vector<Option> chain_options() {
  std::vector<Option> options, more;
  const auto add = [](std::vector<Option>& to, const Option& option) {
    const auto same = [&](const Option& o) { return std::string_view(o.name) == option.name; };
    if (std::none_of(to.begin(), to.end(), same)) to.push_back(option);
  };
  for_each_operation([&](const OperationRow& row) {
    if (row.where == OperationRow::as_command) return;
    add(options, {row.name, 0, row.argument.argument, row.help});
    for (const Option& option : row.more) add(more, option);
  });
  for (const Option& option : more) add(options, option);
  return options;
}

const OperationRow* find_operation(const std::string& command) {
  return find_row(command, OperationRow::as_option);
}

std::vector<Option> options_of(const OperationRow& row) {
  std::vector<Option> options;
  if (row.argument.name != nullptr) options.push_back(row.argument);
  options.insert(options.end(), row.more.begin(), row.more.end());
  return options;
}

std::vector<Operation> make_chain(const std::string& command, const Arguments& arguments) {
  if (const OperationRow* const row = find_operation(command)) {
    const char* const name = row->argument.name;
    return {row->make(name != nullptr ? arguments.value(name) : std::nullopt, arguments)};
  }
  std::vector<Operation> chain;
  for (const auto& [name, value] : arguments.in_order()) {
    if (const OperationRow* const row = find_row(name, OperationRow::as_command)) {
      chain.push_back(row->make(value, arguments));
    }
  }
  return chain;
}

ImageShape shape_of(std::int32_t image) {
  DibHeader header{};
  std::array<std::uint8_t, IMG_HEADER_BLOCK_BYTES> block{};
  if (IMGLOW_get_bitmap_header(image, block.data()) != IMG_OK) return {};
  std::memcpy(&header, block.data(), sizeof header);
  constexpr std::uint32_t kColours = 200;  // biCompression of 32 bits that are no inks
  return {header.biWidth, header.biHeight, header.biBitCount,
          header.biBitCount == 32 && header.biCompression != kColours};
}

bool has_colours(std::int32_t image) {
  const std::int32_t bits = shape_of(image).bits;
  if (bits != 4 && bits != 8) return false;
  std::array<std::array<std::uint8_t, 4>, 256> palette{};
  IMGLOW_get_palette(image, palette.data());
  return std::any_of(palette.begin(), palette.begin() + (1 << bits), [](const auto& entry) {
    return entry[0] != entry[1] || entry[1] != entry[2];
  });
}

std::int32_t make_blendable(const Subject& subject) {
  if (shape_of(subject.image).bits == 16) {
    note(subject, "16 bits become 8");
    return IMG_promote_8(subject.image);
  }
  if (!has_colours(subject.image)) return IMG_OK;
  note(subject, "the palette becomes 24 bits, for colours between its own");
  return IMG_promote_24(subject.image);
}

std::int32_t to_24(std::int32_t image) {
  const ImageShape shape = shape_of(image);
  if (shape.bits == 24) return IMG_OK;
  if (shape.bits == 16) {
    if (const std::int32_t done = IMG_promote_8(image); done < 0) return done;
  }
  if (shape.bits != 32 || shape.has_inks) return IMG_promote_24(image);
  // In the order that IMG_promote_24 takes 32 bits to be in.
  std::vector<std::array<std::uint8_t, 4>> row(static_cast<std::size_t>(shape.width));
  for (std::int32_t y = 0; y < shape.height; ++y) {
    if (const auto got = IMGLOW_get_raster(image, row.data(), y, 0); got < 0) return got;
    for (auto& pixel : row) pixel = {0, pixel[2], pixel[1], pixel[0]};
    if (const auto put = IMGLOW_put_raster(image, row.data(), y, 0); put < 0) return put;
  }
  return IMG_promote_24(image);
}

std::int32_t to_palette(const Subject& subject, int bits, int colours) {
  constexpr std::int32_t kDiffusion = 1;
  const std::int32_t ready = shape_of(subject.image).bits < 24 ? to_24(subject.image) : IMG_OK;
  return ready < 0 ? ready : IMG_quantize_bitmap(subject.image, bits, colours, kDiffusion);
}

}  // namespace tool
