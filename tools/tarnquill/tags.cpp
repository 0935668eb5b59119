// tarnquill tags: what the directory of a TIFF page holds.
#include <array>
#include <cstdio>
#include <cstring>

#include "command.h"
#include "errors.h"
#include "input.h"

namespace tool {
namespace {

constexpr Option kOptions[] = {
    {"page", 0, "N", "the page to look at, from 1 on"},
    {"help", 'h', nullptr, "this text"},
};

constexpr int kMostTag = 0xFFFF, kImageWidth = 256;
constexpr std::size_t kMostShown = 8;  // values

struct TagName {
  int tag;
  const char* name;
};
constexpr TagName kNames[] = {
    {254, "NewSubfileType"},
    {256, "ImageWidth"},
    {257, "ImageLength"},
    {258, "BitsPerSample"},
    {259, "Compression"},
    {262, "PhotometricInterpretation"},
    {266, "FillOrder"},
    {269, "DocumentName"},
    {270, "ImageDescription"},
    {271, "Make"},
    {272, "Model"},
    {273, "StripOffsets"},
    {274, "Orientation"},
    {277, "SamplesPerPixel"},
    {278, "RowsPerStrip"},
    {279, "StripByteCounts"},
    {282, "XResolution"},
    {283, "YResolution"},
    {284, "PlanarConfiguration"},
    {292, "T4Options"},
    {293, "T6Options"},
    {296, "ResolutionUnit"},
    {297, "PageNumber"},
    {305, "Software"},
    {306, "DateTime"},
    {315, "Artist"},
    {317, "Predictor"},
    {320, "ColorMap"},
    {322, "TileWidth"},
    {323, "TileLength"},
    {324, "TileOffsets"},
    {325, "TileByteCounts"},
    {330, "SubIFDs"},
    {332, "InkSet"},
    {338, "ExtraSamples"},
    {339, "SampleFormat"},
    {347, "JPEGTables"},
    {512, "JPEGProc"},
    {513, "JPEGInterchangeFormat"},
    {514, "JPEGInterchangeFormatLength"},
    {530, "YCbCrSubSampling"},
    {532, "ReferenceBlackWhite"},
    {33432, "Copyright"},
};

template <class Number>
Number number_at(const std::uint8_t* bytes) {
  Number number;
  std::memcpy(&number, bytes, sizeof number);
  return number;
}

std::string value_at(int type, const std::uint8_t* bytes) {
  switch (type) {
    case IMG_TIFF_SBYTE:
      return std::to_string(number_at<std::int8_t>(bytes));
    case IMG_TIFF_SHORT:
      return std::to_string(number_at<std::uint16_t>(bytes));
    case IMG_TIFF_SSHORT:
      return std::to_string(number_at<std::int16_t>(bytes));
    case IMG_TIFF_LONG:
    case IMG_TIFF_IFD:
      return std::to_string(number_at<std::uint32_t>(bytes));
    case IMG_TIFF_SLONG:
      return std::to_string(number_at<std::int32_t>(bytes));
    case IMG_TIFF_RATIONAL:
      return std::to_string(number_at<std::uint32_t>(bytes)) + "/" +
             std::to_string(number_at<std::uint32_t>(bytes + 4));
    case IMG_TIFF_SRATIONAL:
      return std::to_string(number_at<std::int32_t>(bytes)) + "/" +
             std::to_string(number_at<std::int32_t>(bytes + 4));
    case IMG_TIFF_FLOAT:
      return std::to_string(number_at<float>(bytes));
    case IMG_TIFF_DOUBLE:
      return std::to_string(number_at<double>(bytes));
    case IMG_TIFF_LONG8:
    case IMG_TIFF_IFD8:
      return std::to_string(number_at<std::uint64_t>(bytes));
    case IMG_TIFF_SLONG8:
      return std::to_string(number_at<std::int64_t>(bytes));
    default:
      return std::to_string(*bytes);
  }
}

std::string shown(const TagFacts& tag) {
  if (tag.type == IMG_TIFF_ASCII) {
    const auto* const text = reinterpret_cast<const char*>(tag.bytes.data());
    return "\"" + printable(std::string(text, strnlen(text, tag.bytes.size()))) + "\"";
  }
  std::string text;
  const std::size_t size = tag.bytes.size() / static_cast<std::size_t>(tag.count);
  for (std::size_t i = 0; i < tag.bytes.size() / size && i < kMostShown; ++i) {
    if (i > 0) text += ' ';
    text += value_at(tag.type, &tag.bytes[i * size]);
  }
  return static_cast<std::size_t>(tag.count) > kMostShown ? text + " ..." : text;
}

const char* name_of(int tag) {
  for (const TagName& known : kNames) {
    if (known.tag == tag) return known.name;
  }
  return "-";
}

int run_tags(const Arguments& arguments) {
  if (arguments.operands().size() != 1) throw UsageError("tags needs the name of one file");
  const int page = arguments.number("page", 1, 0xFFFF).value_or(1) - 1;
  const std::string& name = arguments.operands()[0];
  within_memory(input_label(name), [&] {
    const Input input(name);
    if (!input.tag(page, kImageWidth)) throw Failure(input.label(), IMG_UNSUPPORTED);
    for (int tag = 0; tag <= kMostTag; ++tag) {
      const auto facts = input.tag(page, tag);
      if (!facts) continue;
      std::printf("%5d  %-28s %7d  %s\n", tag, name_of(tag), static_cast<int>(facts->count),
                  shown(*facts).c_str());
    }
  });
  return flushed(kExitOk);
}

}  // namespace

Command tags_command() {
  return {
      "tags",
      "FILE",
      "Lists the tags of a page of a TIFF file.",
      "Shows number, name, the count of values and the first of them. A FILE of - is standard "
      "input.\n",
      "--page 2 faxes.tif",
      {std::begin(kOptions), std::end(kOptions)},
      run_tags,
  };
}

}  // namespace tool
