// From a directory's entries to a page.
#include "formats/tiff/page.h"

#include <cmath>

namespace tq::tiff {
namespace {

// The first entry of each tag. Order does not matter: some writers do not sort.
class Directory {
 public:
  Directory(const File& file, std::int64_t position) : file_(file) {
    is_whole_ = file.for_each_entry(position, [&](const Entry& entry) {
      const bool is_used = entry.tag >= kFirst && entry.tag <= kLast;
      if (is_used && !has(Tag{entry.tag})) entries_[entry.tag - kFirst] = entry;
      return true;
    });
  }

  bool is_whole() const { return is_whole_; }
  const Entry& entry(Tag tag) const { return entries_[tag - kFirst]; }
  bool has(Tag tag) const { return entry(tag).exists(); }
  Numbers numbers(Tag tag) const { return {file_, entry(tag)}; }
  std::uint64_t number(Tag tag, std::uint64_t fallback, std::uint64_t i = 0) const {
    return numbers(tag).at(i, fallback);
  }

 private:
  static constexpr int kFirst = kNewSubfileType, kLast = kReferenceBlackWhite;

  const File& file_;
  bool is_whole_ = false;
  std::array<Entry, kLast - kFirst + 1> entries_{};
};

// Dots per inch of a resolution; 0: the file does not say.
double dots_per_inch(const Directory& directory, Tag tag) {
  constexpr double kMost = 1e6;
  const std::uint64_t unit = directory.number(kResolutionUnit, 2);
  const double value = directory.numbers(tag).real_at(0);
  if ((unit != 2 && unit != 3) || !(value > 0 && value < kMost)) return 0;
  return unit == 2 ? value : value * 254 / 100;
}

std::int32_t rounded(double value) {
  return static_cast<std::int32_t>(std::floor(value + 0.5));
}

bool is_known(std::uint64_t coding) {
  constexpr std::uint16_t kKnown[] = {kUncoded,    kHuffman,  kGroup3,     kGroup4,
                                      kLzw,        kOldJpeg,  kJpeg,       kDeflate,
                                      kOldDeflate, kPackBits, kThunderScan};
  return std::find(std::begin(kKnown), std::end(kKnown), coding) != std::end(kKnown);
}

int colours_of(Photometric photometric) {
  switch (photometric) {
    case Photometric::rgb:
    case Photometric::ycbcr:
    case Photometric::lab:
      return 3;
    case Photometric::separated:
      return 4;
    default:
      return 1;
  }
}

// Whether all samples have the same number of bits and are unsigned.
bool samples_are_alike(const Directory& directory, std::uint64_t samples) {
  Numbers bits = directory.numbers(kBitsPerSample), formats = directory.numbers(kSampleFormat);
  for (std::uint64_t i = 1; i < std::min(bits.count(), samples); ++i) {
    if (bits.at(i) != bits.at(0)) return false;
  }
  for (std::uint64_t i = 0; i < std::min(formats.count(), samples); ++i) {
    const std::uint64_t format = formats.at(i, 1);
    if (format != 1 && format != 4) return false;  // unsigned, or not told
  }
  return true;
}

Status read_samples(const Directory& directory, Page& page) {
  const std::uint64_t told = directory.number(kPhotometric, 1);
  // Old writers of JPEG leave to the stream what it says as well.
  const bool in_colour = page.is_jpeg() && (told == 2 || told == 6);
  const std::uint64_t samples = directory.number(kSamplesPerPixel, in_colour ? 3 : 1);
  const std::uint64_t bits = directory.number(kBitsPerSample, page.is_jpeg() ? 8 : 1);
  const std::uint64_t extra = directory.numbers(kExtraSamples).count();
  if (samples == 0 || samples > 0xFFFF || bits == 0 || bits > 32) return StatusCode::unsupported;
  if (!samples_are_alike(directory, samples)) return StatusCode::unsupported;
  page.samples = static_cast<int>(samples);
  page.bits = static_cast<int>(bits);

  std::uint64_t photometric = page.is_fax() ? 0 : samples >= extra + 3 ? 2 : 1;
  photometric = directory.number(kPhotometric, photometric);
  if (photometric > 8 || photometric == 7) return StatusCode::unsupported;
  page.photometric = static_cast<Photometric>(photometric);
  page.colours = colours_of(page.photometric);
  if (page.samples < page.colours) return StatusCode::unsupported;
  if (page.photometric == Photometric::separated && directory.number(kInkSet, 1) != 1) {
    return StatusCode::unsupported;
  }
  const std::uint64_t first_extra = directory.number(kExtraSamples, 0);
  if (page.samples > page.colours) {
    page.alpha = first_extra == 1   ? Alpha::associated
                 : first_extra == 2 ? Alpha::unassociated
                                    : Alpha::none;
  }
  page.planes_apart = page.samples > 1 && directory.number(kPlanarConfiguration, 1) == 2;
  return kOk;
}

// What there is a way from the components of JPEG to pixels for.
bool components_are_known(const Page& page) {
  if (page.photometric == Photometric::lab || page.photometric == Photometric::mask) return false;
  const bool rgbx = page.photometric == Photometric::rgb && page.samples == 4;
  return page.planes_apart || page.samples == page.colours || rgbx;
}

// The depths that there are rules for.
bool depth_is_known(const Page& page) {
  const int bits = page.bits;
  if (page.is_fax()) return bits == 1 && page.samples == 1 && page.colours == 1;
  if (page.is_jpeg()) return bits == 8 && components_are_known(page);
  if (page.coding == kThunderScan && (bits != 4 || page.samples != 1)) return false;
  switch (page.photometric) {
    case Photometric::palette:
      return bits <= 8;
    case Photometric::mask:
      return bits == 1;
    case Photometric::ycbcr:
    case Photometric::lab:
      return bits == 8;
    case Photometric::rgb:
      return bits <= 16 || bits == 24 || bits == 32;
    default:
      return true;
  }
}

Status read_subsampling(const Directory& directory, Page& page) {
  if (page.photometric != Photometric::ycbcr || (page.is_jpeg() && !page.planes_apart)) return kOk;
  const auto factor = [&](int i) {
    return static_cast<int>(directory.number(kYCbCrSubSampling, 2, i));
  };
  page.h = factor(0);
  page.v = factor(1);
  const auto valid = [](int n) { return n == 1 || n == 2 || n == 4; };
  if (!valid(page.h) || !valid(page.v)) return StatusCode::unsupported;
  const bool plain = page.samples == 3 && !page.planes_apart;
  return page.h * page.v == 1 || plain ? StatusCode::ok : StatusCode::unsupported;
}

Status read_predictor(const Directory& directory, Page& page) {
  if (page.coding != kLzw && page.coding != kDeflate && page.coding != kOldDeflate) return kOk;
  const std::uint64_t predictor = directory.number(kPredictor, 1);
  page.differences = predictor == 2;
  const bool known = !page.differences || ((page.bits == 8 || page.bits == 16 || page.bits == 32) &&
                                           page.h * page.v == 1);
  return known && predictor != 3 ? StatusCode::ok : StatusCode::unsupported;
}

// Strips and tiles may stand under each other's tags.
Status read_chunks(const Directory& directory, Page& page) {
  Chunks& chunks = page.chunks;
  chunks.tiled = directory.has(kTileWidth) && directory.has(kTileLength);
  const bool tile_tags = directory.has(kTileOffsets);
  chunks.offsets = directory.numbers(tile_tags ? kTileOffsets : kStripOffsets);
  chunks.byte_counts = directory.numbers(
      tile_tags && directory.has(kTileByteCounts) ? kTileByteCounts : kStripByteCounts);
  const bool in_one = page.coding == kOldJpeg && directory.has(kJpegInterchangeFormat);
  if (!chunks.offsets.exist() && !in_one) return StatusCode::bad_image;
  const auto side = [&](Tag tag) {
    return static_cast<std::int64_t>(std::min<std::uint64_t>(directory.number(tag, 0), INT32_MAX));
  };
  if (chunks.tiled) {
    chunks.width = side(kTileWidth);
    chunks.height = side(kTileLength);
    if (chunks.width == 0 || chunks.height == 0) return StatusCode::bad_image;
    // A tile ends with whole blocks of pixels; this coding has rows of the page.
    if (chunks.width % page.h != 0 || chunks.height % page.v != 0) return StatusCode::unsupported;
    if (page.coding == kThunderScan) return StatusCode::unsupported;
  } else {
    const std::int64_t rows = side(kRowsPerStrip);
    chunks.width = page.width;
    chunks.height = rows == 0 ? page.height : std::min<std::int64_t>(rows, page.height);
  }
  chunks.across = (page.width + chunks.width - 1) / chunks.width;
  chunks.down = (page.height + chunks.height - 1) / chunks.height;
  return kOk;
}

}  // namespace

Status read_page(const File& file, std::int64_t position, Page& page) {
  const Directory directory(file, position);
  const std::uint64_t width = directory.number(kImageWidth, 0);
  const std::uint64_t height = directory.number(kImageLength, 0);
  const bool sized = width != 0 && height != 0 && width <= INT32_MAX && height <= INT32_MAX;
  if (!sized) return StatusCode::bad_image;
  page.is_cut = !directory.is_whole();
  page.width = static_cast<std::int32_t>(width);
  page.height = static_cast<std::int32_t>(height);

  const std::uint64_t coding = directory.number(kCompression, kUncoded);
  const bool is_jbig2 = page.knows_jbig2 && (coding == kJbig || coding == kJbig2);
  if (!is_known(coding) && !is_jbig2) return StatusCode::unsupported;
  page.coding = static_cast<Coding>(coding);
  constexpr std::uint64_t kBaseline = 1, kLossless = 14;
  if (page.coding == kOldJpeg && directory.number(kJpegProc, kBaseline) == kLossless) {
    return StatusCode::unsupported;
  }
  page.low_bit_first = directory.number(kFillOrder, 1) == 2;
  page.t4_options = static_cast<std::uint32_t>(directory.number(kT4Options, 0));
  const double x = dots_per_inch(directory, kXResolution);
  const double y = dots_per_inch(directory, kYResolution);
  page.x_dpi = rounded(x);
  page.y_dpi = rounded(y);
  constexpr double kMost = Resolution::kMost;
  page.resolution = {rounded(std::min(1000 * x, kMost)), rounded(std::min(1000 * y, kMost))};
  const std::uint64_t orientation = directory.number(kOrientation, 1);
  if (orientation >= 1 && orientation <= 8) page.orientation = static_cast<int>(orientation);
  TQ_TRY(read_samples(directory, page));
  if (!depth_is_known(page)) return StatusCode::unsupported;
  TQ_TRY(read_subsampling(directory, page));
  TQ_TRY(read_predictor(directory, page));
  page.color_map = directory.entry(kColorMap);
  page.jpeg_tables = directory.entry(kJpegTables);
  page.coefficients = directory.entry(kYCbCrCoefficients);
  page.reference_levels = directory.entry(kReferenceBlackWhite);
  page.old_jpeg = {.stream = directory.entry(kJpegInterchangeFormat),
                   .stream_bytes = directory.entry(kJpegInterchangeFormatLength),
                   .restart_interval = directory.entry(kJpegRestartInterval),
                   .quantisation = directory.entry(kJpegQTables),
                   .dc = directory.entry(kJpegDcTables),
                   .ac = directory.entry(kJpegAcTables),
                   .subsampling = directory.entry(kYCbCrSubSampling)};
  return read_chunks(directory, page);
}

Chunk find_chunk(const File& file, Page& page, std::uint64_t index, std::int64_t whole_bytes) {
  Chunks& chunks = page.chunks;
  Chunk chunk{.position = file.position_of(chunks.offsets.at(index))};
  if (chunk.position < 0) return chunk;
  const std::uint64_t bytes = chunks.byte_counts.at(index);
  const bool too_short = page.coding == kUncoded && chunks.offsets.count() == 1 &&
                         bytes < static_cast<std::uint64_t>(whole_bytes);
  chunk.bytes = static_cast<std::int64_t>(std::min<std::uint64_t>(bytes, INT32_MAX));
  if (bytes != 0 && !too_short) return chunk;
  const std::int64_t next = file.position_of(chunks.offsets.at(index + 1));
  chunk.bytes = (next > chunk.position ? next : INT32_MAX) - chunk.position;
  return chunk;
}

}  // namespace tq::tiff
