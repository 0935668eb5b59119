// Calls of libpng. Each of them sets the place that an error jumps to, and has nothing in its frame
// that would have to be cleaned up.
#include "formats/png/library.h"

#include <png.h>

#include <algorithm>
#include <csetjmp>

namespace tq::png {
namespace {

constexpr png_uint_32 kLargestSide = 0x7FFFFFFF;  // what does not fit a block is refused later
constexpr int kMostCachedChunks = 64;
constexpr png_alloc_size_t kLargestChunk = 1 << 20;

// zlib's levels against its own, 6: pictures take 0.3 to 0.9 of the time, photos 1 % more bytes and
// drawings 4 % at most. Levels below 4 take no notice of filters.
constexpr int kFilteredLevel = 4;    // 8 and 16 bits a sample
constexpr int kUnfilteredLevel = 5;  // palettes and smaller samples: longer strings return

// Chunks that say nothing about the pixels, or more than images here can hold, are skipped unread.
constexpr png_byte kSkipped[] =
    "bKGD\0cHRM\0eXIf\0gAMA\0hIST\0iCCP\0iTXt\0"
    "oFFs\0pCAL\0sBIT\0sCAL\0sPLT\0sRGB\0tEXt\0tIME\0zTXt";

png_structp png_of(void* png) {
  return static_cast<png_structp>(png);
}
png_infop info_of(void* info) {
  return static_cast<png_infop>(info);
}

}  // namespace

// What libpng calls.
struct PngHooks {
  // png_error itself, without the message that would go to the error stream.
  [[noreturn]] static void fail(png_structp png, png_const_charp /*message*/) {
    png_longjmp(png, 1);
  }
  static void ignore(png_structp /*png*/, png_const_charp /*message*/) {}

  template <class Owner>
  static png_voidp allocate(png_structp png, png_alloc_size_t bytes) {
    void* block = alloc_block(bytes);
    if (block == nullptr) {
      static_cast<Owner*>(png_get_mem_ptr(png))->failure_ = StatusCode::out_of_memory;
    }
    return block;
  }
  static void release(png_structp /*png*/, png_voidp block) { free_block(block); }

  static void read(png_structp png, png_bytep bytes, std::size_t count) {
    auto& reader = *static_cast<PngReader*>(png_get_io_ptr(png));
    if (reader.input_.read({bytes, count}) == count) return;
    reader.failure_ = StatusCode::read_failed;
    png_error(png, "");
  }
  static void write(png_structp png, png_bytep bytes, std::size_t count) {
    auto& writer = *static_cast<PngWriter*>(png_get_io_ptr(png));
    writer.out_.put({bytes, count});
    writer.failure_ = writer.out_.status();
    if (writer.failure_.ok()) return;
    png_error(png, "");
  }
  static void flush(png_structp /*png*/) {}
};

PngReader::~PngReader() {
  png_structp png = png_of(png_);
  png_infop info = info_of(info_);
  if (png != nullptr) png_destroy_read_struct(&png, &info, nullptr);
}

Status PngReader::open(StreamHandle stream) {
  TQ_TRY(input_.open(stream, read_chunk_bytes(1)));
  png_ = png_create_read_struct_2(PNG_LIBPNG_VER_STRING, this, PngHooks::fail, PngHooks::ignore,
                                  this, PngHooks::allocate<PngReader>, PngHooks::release);
  if (png_ == nullptr) return StatusCode::out_of_memory;
  info_ = png_create_info_struct(png_of(png_));
  if (info_ == nullptr) return StatusCode::out_of_memory;
  return kOk;
}

namespace {

void take_header(png_structp png, png_infop info, PngHeader& header) {
  const int type = png_get_color_type(png, info);
  header.width = png_get_image_width(png, info);
  header.height = png_get_image_height(png, info);
  header.bits = png_get_bit_depth(png, info);
  header.colour = (type & PNG_COLOR_MASK_COLOR) != 0;
  header.indexed = type == PNG_COLOR_TYPE_PALETTE;
  header.alpha = (type & PNG_COLOR_MASK_ALPHA) != 0;
  header.interlaced = png_get_interlace_type(png, info) != PNG_INTERLACE_NONE;
  int unit = 0;
  if (png_get_pHYs(png, info, &header.x_per_metre, &header.y_per_metre, &unit) == 0 ||
      unit != PNG_RESOLUTION_METER) {
    header.x_per_metre = header.y_per_metre = 0;
  }
}

void take_colours(png_structp png, png_infop info, PngHeader& header) {
  png_colorp colours = nullptr;
  if (header.indexed && png_get_PLTE(png, info, &colours, &header.entries) != 0) {
    for (int i = 0; i < header.entries && i < 256; ++i) {
      header.palette[i] = {colours[i].red, colours[i].green, colours[i].blue, 255};
    }
  }
  png_bytep alpha = nullptr;
  int count = 0;
  png_color_16p single = nullptr;
  if (png_get_tRNS(png, info, &alpha, &count, &single) == 0) return;
  if (header.indexed) {
    for (int i = 0; alpha != nullptr && i < count && i < 256; ++i)
      header.palette[i].alpha = alpha[i];
  } else if (header.colour) {
    header.transparent_colour = true;
  } else if (single != nullptr) {
    header.transparent_level = single->gray;
  }
}

}  // namespace

Status PngReader::read_header(PngHeader& header) {
  png_structp png = png_of(png_);
  if (setjmp(png_jmpbuf(png)) != 0) return failure_;  // NOLINT(cert-err52-cpp): libpng's own way
  png_set_read_fn(png, this, PngHooks::read);
  png_set_user_limits(png, kLargestSide, kLargestSide);
  png_set_chunk_cache_max(png, kMostCachedChunks);
  png_set_chunk_malloc_max(png, kLargestChunk);
  png_set_keep_unknown_chunks(png, PNG_HANDLE_CHUNK_NEVER, kSkipped, sizeof kSkipped / 5);
#ifdef FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION
  png_set_crc_action(png, PNG_CRC_QUIET_USE, PNG_CRC_QUIET_USE);
#endif
  png_read_info(png, info_of(info_));
  take_header(png, info_of(info_), header);
  take_colours(png, info_of(info_), header);
  return kOk;
}

Status PngReader::start_rows(const RowForm& form, std::int64_t& row_bytes) {
  png_structp png = png_of(png_);
  if (setjmp(png_jmpbuf(png)) != 0) return failure_;  // NOLINT(cert-err52-cpp)
  if (form.to_8_bits) png_set_strip_16(png);
  if (form.with_alpha) png_set_tRNS_to_alpha(png);
  passes_ = png_set_interlace_handling(png);
  png_read_update_info(png, info_of(info_));
  row_bytes = static_cast<std::int64_t>(png_get_rowbytes(png, info_of(info_)));
  return kOk;
}

Status PngReader::read_row(std::uint8_t* row) {
  png_structp png = png_of(png_);
  if (setjmp(png_jmpbuf(png)) != 0) {  // NOLINT(cert-err52-cpp)
    lacks_rows_ = true;
    return failure_;
  }
  png_read_row(png, row, nullptr);
  return kOk;
}

Status PngReader::finish() {
  png_structp png = png_of(png_);
  if (setjmp(png_jmpbuf(png)) != 0) return failure_;  // NOLINT(cert-err52-cpp)
  png_read_end(png, nullptr);
  return kOk;
}

PngWriter::~PngWriter() {
  png_structp png = png_of(png_);
  png_infop info = info_of(info_);
  if (png != nullptr) png_destroy_write_struct(&png, &info);
}

Status PngWriter::open(StreamHandle stream) {
  TQ_TRY(out_.open(stream));
  png_ = png_create_write_struct_2(PNG_LIBPNG_VER_STRING, this, PngHooks::fail, PngHooks::ignore,
                                   this, PngHooks::allocate<PngWriter>, PngHooks::release);
  if (png_ == nullptr) return StatusCode::out_of_memory;
  info_ = png_create_info_struct(png_of(png_));
  if (info_ == nullptr) return StatusCode::out_of_memory;
  return kOk;
}

namespace {

void put_palette(png_structp png, png_infop info, const PngHeader& header) {
  std::array<png_color, 256> colours{};
  std::array<png_byte, 256> alpha{};
  int opaque_from = 0;  // entries from here on need no alpha
  for (int i = 0; i < header.entries; ++i) {
    const PngColour& entry = header.palette[i];
    colours[i] = {entry.red, entry.green, entry.blue};
    alpha[i] = entry.alpha;
    if (entry.alpha != 255) opaque_from = i + 1;
  }
  png_set_PLTE(png, info, colours.data(), header.entries);
  if (opaque_from != 0) png_set_tRNS(png, info, alpha.data(), opaque_from, nullptr);
}

}  // namespace

Status PngWriter::write_header(const PngHeader& header) {
  png_structp png = png_of(png_);
  png_infop info = info_of(info_);
  if (setjmp(png_jmpbuf(png)) != 0) return failure_;  // NOLINT(cert-err52-cpp)
  png_set_write_fn(png, this, PngHooks::write, PngHooks::flush);
  png_set_user_limits(png, kLargestSide, kLargestSide);
  const int type = header.indexed  ? PNG_COLOR_TYPE_PALETTE
                   : header.colour ? PNG_COLOR_TYPE_RGB
                                   : PNG_COLOR_TYPE_GRAY;
  png_set_IHDR(png, info, header.width, header.height, header.bits, type, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  // libpng's own rule for which rows it filters.
  const bool filtered = !header.indexed && header.bits >= 8;
  png_set_compression_level(png, filtered ? kFilteredLevel : kUnfilteredLevel);
  if (header.indexed) put_palette(png, info, header);
  if (header.x_per_metre != 0 && header.y_per_metre != 0) {
    png_set_pHYs(png, info, header.x_per_metre, header.y_per_metre, PNG_RESOLUTION_METER);
  }
  png_write_info(png, info);
  return kOk;
}

Status PngWriter::write_row(const std::uint8_t* row) {
  png_structp png = png_of(png_);
  if (setjmp(png_jmpbuf(png)) != 0) return failure_;  // NOLINT(cert-err52-cpp)
  png_write_row(png, row);
  return kOk;
}

Status PngWriter::finish() {
  png_structp png = png_of(png_);
  if (setjmp(png_jmpbuf(png)) != 0) return failure_;  // NOLINT(cert-err52-cpp)
  png_write_end(png, nullptr);
  return out_.flush();
}

}  // namespace tq::png
