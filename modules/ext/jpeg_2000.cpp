// JPEG 2000 by OpenJPEG: code streams, and the files around them (ITU-T T.800, annex I).
#include <openjpeg.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "io/endian.h"
#include "modules/ext/decoders.h"
#include "pixels/colours.h"
#include "pixels/rows.h"

namespace tq::ext {
namespace {

constexpr int kMostComponents = 5;  // inks and alpha
constexpr std::uint8_t kFileMark[] = {0, 0, 0, 12, 'j', 'P', ' ', ' ', '\r', '\n', 0x87, '\n'};
constexpr std::uint8_t kStreamMark[] = {0xFF, 0x4F, 0xFF, 0x51};

bool begins_with(Bytes bytes, Bytes mark) {
  return bytes.size() >= mark.size() && std::equal(mark.begin(), mark.end(), bytes.begin());
}

// --- What boxes say beside the code stream ---

enum Colours : std::uint32_t { kUnknown = 0, kInks = 12, kGrey = 17, kLumaFirst = 18 };

struct Boxes {
  std::uint32_t colours = kUnknown;
  int alphas = 0;
  int palette_columns = 0, palette_bits = 0;
};

struct Box {
  std::uint32_t type = 0;
  Bytes data{};
};

constexpr std::uint32_t type_of(const char (&text)[5]) {
  std::uint32_t type = 0;
  for (int i = 0; i < 4; ++i) type = type << 8 | byte(text[i]);
  return type;
}

bool next_box(Bytes& bytes, Box& box) {
  constexpr std::size_t kHead = 8, kLongHead = 16;
  if (bytes.size() < kHead) return false;
  std::uint64_t length = load_be32(bytes.data());
  std::size_t head = kHead;
  if (length == 1 && bytes.size() >= kLongHead) {
    head = kLongHead;
    length = std::uint64_t{load_be32(&bytes[8])} << 32 | load_be32(&bytes[12]);
  }
  if (length == 0 || length > bytes.size()) length = bytes.size();
  if (length < head) return false;
  const auto whole = static_cast<std::size_t>(length);
  box = {load_be32(&bytes[4]), bytes.subspan(head, whole - head)};
  bytes = bytes.subspan(whole);
  return true;
}

Boxes read_boxes(Bytes file) {
  Boxes found;
  Box box;
  while (next_box(file, box) && box.type != type_of("jp2h")) {
  }
  if (box.type != type_of("jp2h")) return found;
  for (Bytes inside = box.data; next_box(inside, box);) {
    const Bytes data = box.data;
    if (box.type == type_of("colr") && data.size() >= 7 && data[0] == 1 &&
        found.colours == kUnknown) {
      found.colours = load_be32(&data[3]);
    } else if (box.type == type_of("pclr") && data.size() >= 4) {
      found.palette_columns = data[2];
      found.palette_bits = (data[3] & 0x7F) + 1;
    } else if (box.type == type_of("cdef")) {
      for (std::size_t at = 2; at + 6 <= data.size(); at += 6) {
        const int kind = load_be16(&data[at + 2]);
        if (kind == 1 || kind == 2) ++found.alphas;
      }
    }
  }
  return found;
}

// --- The code stream ---

// The library's stream over bytes that are there.
struct Input {
  Bytes bytes;
  std::size_t at = 0;

  static OPJ_SIZE_T read(void* buffer, OPJ_SIZE_T count, void* context) {
    Input& self = *static_cast<Input*>(context);
    const std::size_t here = std::min<std::size_t>(count, self.bytes.size() - self.at);
    if (here == 0) return static_cast<OPJ_SIZE_T>(-1);
    std::memcpy(buffer, &self.bytes[self.at], here);
    self.at += here;
    return here;
  }
  static OPJ_OFF_T skip(OPJ_OFF_T count, void* context) {
    Input& self = *static_cast<Input*>(context);
    if (count < 0) return -1;
    const auto here =
        std::min<std::uint64_t>(static_cast<std::uint64_t>(count), self.bytes.size() - self.at);
    self.at += static_cast<std::size_t>(here);
    return static_cast<OPJ_OFF_T>(here);
  }
  static OPJ_BOOL seek(OPJ_OFF_T position, void* context) {
    Input& self = *static_cast<Input*>(context);
    if (position < 0 || static_cast<std::uint64_t>(position) > self.bytes.size()) return OPJ_FALSE;
    self.at = static_cast<std::size_t>(position);
    return OPJ_TRUE;
  }
};

class Picture {
 public:
  Picture() = default;
  Picture(const Picture&) = delete;
  Picture& operator=(const Picture&) = delete;
  ~Picture() {
    opj_image_destroy(image_);
    opj_stream_destroy(stream_);
    opj_destroy_codec(codec_);
  }

  Status open(Bytes coded);
  Status decode();

  std::int64_t width() const { return std::int64_t{image_->x1} - image_->x0; }
  std::int64_t height() const { return std::int64_t{image_->y1} - image_->y0; }
  int components() const { return static_cast<int>(image_->numcomps); }
  const Boxes& boxes() const { return boxes_; }

  // As it will be when it is decoded: palettes are applied then.
  int components_to_be() const {
    return boxes_.palette_columns > 0 ? boxes_.palette_columns : components();
  }
  int bits() const {
    if (boxes_.palette_columns > 0) return boxes_.palette_bits;
    std::uint32_t most = 0;
    for (int i = 0; i < components(); ++i) most = std::max(most, image_->comps[i].prec);
    return static_cast<int>(most);
  }
  bool is_signed() const { return image_->comps[0].sgnd != 0; }
  bool is_subsampled() const {
    return components() >= 3 && (image_->comps[1].dx > 1 || image_->comps[1].dy > 1);
  }

  // Of one that is decoded.
  bool is_alpha(int component) const { return image_->comps[component].alpha != 0; }
  bool is_mixed(int component) const { return image_->comps[component].alpha == 2; }
  // Calls `put(x, sample)` for each pixel of a row.
  template <class Put>
  void for_each(int component, std::int64_t y, Put&& put) const {
    const opj_image_comp_t& plane = image_->comps[component];
    const auto place = [](std::int64_t at, std::uint32_t step, std::uint32_t first,
                          std::uint32_t count) {
      return std::clamp<std::int64_t>(at / step - first, 0, std::int64_t{count} - 1);
    };
    const std::int64_t line = place(image_->y0 + y, plane.dy, plane.y0, plane.h);
    const OPJ_INT32* const samples = plane.data + static_cast<std::ptrdiff_t>(line * plane.w);
    const std::int64_t end = width();
    if (plane.dx == 1 && plane.w == end) {
      for (std::ptrdiff_t x = 0; x < end; ++x) put(x, samples[x]);
      return;
    }
    for (std::int64_t x = 0; x < end; ++x) {
      put(static_cast<std::ptrdiff_t>(x),
          samples[place(image_->x0 + x, plane.dx, plane.x0, plane.w)]);
    }
  }
  // The same in 8 bits.
  template <class Put>
  void for_each_level(int component, std::int64_t y, Put&& put) const {
    const opj_image_comp_t& plane = image_->comps[component];
    const std::int64_t most = (std::int64_t{1} << plane.prec) - 1;
    const std::int64_t zero = plane.sgnd != 0 ? std::int64_t{1} << (plane.prec - 1) : 0;
    for_each(component, y, [&](std::ptrdiff_t x, std::int32_t sample) {
      const std::int64_t level = std::clamp<std::int64_t>(sample + zero, 0, most);
      put(x, byte(static_cast<int>((level * 255 + most / 2) / most)));
    });
  }

 private:
  Input input_;
  Boxes boxes_;
  opj_codec_t* codec_ = nullptr;
  opj_stream_t* stream_ = nullptr;
  opj_image_t* image_ = nullptr;
};

Status Picture::open(Bytes coded) {
  constexpr OPJ_SIZE_T kBuffer = 65536;
  constexpr std::uint32_t kDeepest = 31;
  const bool in_file = begins_with(coded, kFileMark);
  if (in_file) boxes_ = read_boxes(coded);
  input_ = {coded};
  codec_ = opj_create_decompress(in_file ? OPJ_CODEC_JP2 : OPJ_CODEC_J2K);
  stream_ = opj_stream_create(kBuffer, OPJ_TRUE);
  if (codec_ == nullptr || stream_ == nullptr) return StatusCode::out_of_memory;
  opj_stream_set_read_function(stream_, Input::read);
  opj_stream_set_skip_function(stream_, Input::skip);
  opj_stream_set_seek_function(stream_, Input::seek);
  opj_stream_set_user_data(stream_, &input_, nullptr);
  opj_stream_set_user_data_length(stream_, coded.size());
  opj_dparameters_t parameters;
  opj_set_default_decoder_parameters(&parameters);
  if (opj_setup_decoder(codec_, &parameters) == OPJ_FALSE) return StatusCode::out_of_memory;
  opj_decoder_set_strict_mode(codec_, OPJ_FALSE);  // what is there of a file that is cut off
  if (opj_read_header(stream_, codec_, &image_) == OPJ_FALSE || image_ == nullptr) {
    return StatusCode::bad_image;
  }
  const bool has_size = image_->x1 > image_->x0 && image_->y1 > image_->y0;
  if (!has_size || components() < 1) return StatusCode::bad_image;
  if (components() > kMostComponents || components_to_be() > kMostComponents) {
    return StatusCode::unsupported;
  }
  for (int i = 0; i < components(); ++i) {
    if (image_->comps[i].prec < 1 || image_->comps[i].prec > kDeepest)
      return StatusCode::unsupported;
  }
  return kOk;
}

// The library takes four bytes for each sample, and as many for what it works on.
Status Picture::decode() {
  if (width() * height() > static_cast<std::int64_t>(kLargestBlock) / 4 / components_to_be()) {
    return StatusCode::out_of_memory;
  }
  if (opj_decode(codec_, stream_, image_) == OPJ_FALSE) return StatusCode::bad_image;
  if (components() < components_to_be()) return StatusCode::bad_image;
  for (int i = 0; i < components(); ++i) {
    const opj_image_comp_t& plane = image_->comps[i];
    const bool usable =
        plane.data != nullptr && plane.w > 0 && plane.h > 0 && plane.dx > 0 && plane.dy > 0;
    if (!usable) return StatusCode::bad_image;
  }
  return kOk;
}

// Which components are what.
struct Channels {
  std::array<int, 4> colours{};
  int count = 0;
  int alpha = -1;
};

// Of those that nothing says more about, the second of two and the fourth of four is alpha.
Channels channels_of(const Picture& picture) {
  Channels found;
  for (int i = 0; i < picture.components(); ++i) {
    if (picture.is_alpha(i)) {
      found.alpha = i;
    } else if (found.count < 4) {
      found.colours[found.count++] = i;
    }
  }
  const bool inks = picture.boxes().colours == kInks;
  if (found.alpha < 0 && (found.count == 2 || (found.count == 4 && !inks))) {
    found.alpha = found.colours[--found.count];
  }
  return found;
}

bool is_luma_first(const Picture& picture) {
  return picture.boxes().colours == kLumaFirst ||
         (picture.boxes().colours == kUnknown && picture.is_subsampled());
}

// Red, green, blue of three bytes each that are Y, Cb, Cr.
void mix(pixels::Row line, std::int32_t width, int step, pixels::Row room) {
  for (std::ptrdiff_t x = 0; x < width; ++x) {
    for (int i = 0; i < 3; ++i) room[3 * x + i] = line[step * x + 2 - i];
  }
  pixels::mix_luma_and_chroma(room, width);
  for (std::ptrdiff_t x = 0; x < width; ++x) {
    for (int i = 0; i < 3; ++i) line[step * x + i] = room[3 * x + 2 - i];
  }
}

}  // namespace

bool is_jpeg_2000(Bytes head) {
  return begins_with(head, kFileMark) || begins_with(head, kStreamMark);
}

Status decode_jpeg_2000(Bytes file, std::int32_t page, const formats::RowSink& sink) {
  if (page > 0) return StatusCode::page_past_end;
  Picture picture;
  TQ_TRY(picture.open(file));
  ColourRows rows;
  TQ_TRY(rows.begin(picture.width(), picture.height(), sink));
  TQ_TRY(picture.decode());
  const Channels channels = channels_of(picture);
  const auto width = static_cast<std::int32_t>(picture.width());
  const bool has_alpha = channels.alpha >= 0, mixes = is_luma_first(picture) && channels.count == 3;
  const int step = has_alpha ? 4 : 3;
  RowBuffer<std::uint8_t> line, room;
  TQ_TRY(line.allocate(std::int64_t{width} * step));
  TQ_TRY(room.allocate(std::int64_t{width} * 4));
  for (std::int64_t y = 0; y < picture.height(); ++y) {
    const auto take = [&](int component, int to, int every, pixels::Row out) {
      picture.for_each_level(
          component, y, [&](std::ptrdiff_t x, std::uint8_t level) { out[every * x + to] = level; });
    };
    if (channels.count == 4) {
      for (int i = 0; i < 4; ++i) take(channels.colours[i], i, 4, room.pixels());
      for (std::ptrdiff_t x = 0; x < width; ++x) {
        const Rgb colour = pixels::colour_of_cmyk(&room[4 * x]);
        line[step * x] = colour.red;
        line[step * x + 1] = colour.green;
        line[step * x + 2] = colour.blue;
      }
    } else {
      for (int i = 0; i < 3; ++i) {
        take(channels.colours[channels.count == 3 ? i : 0], i, step, line.pixels());
      }
    }
    if (mixes) mix(line.pixels(), width, step, room.pixels());
    if (has_alpha) take(channels.alpha, 3, step, line.pixels());
    TQ_TRY(rows.put(line.pixels(), has_alpha, has_alpha && picture.is_mixed(channels.alpha)));
  }
  return kOk;
}

Status decode_coded_jpeg_2000(Bytes coded, const img_coded_picture& picture) {
  constexpr int kDeepest = 16;
  Picture image;
  TQ_TRY(image.open(coded));
  const bool levels = picture.sample_bits == 8;
  img_samples about{};
  about.size = sizeof about;
  if (image.width() > INT32_MAX || image.height() > INT32_MAX) return StatusCode::bad_image;
  about.width = static_cast<std::int32_t>(image.width());
  about.height = static_cast<std::int32_t>(image.height());
  about.components = std::max(image.components_to_be() - image.boxes().alphas, 1);
  about.bits = levels ? 8 : image.bits();
  about.is_signed = !levels && image.is_signed() ? 1 : 0;
  if (about.components > 4 || about.bits > kDeepest) return StatusCode::unsupported;
  const auto begun = Status::from_raw(picture.header(&about, picture.context));
  if (begun.failed()) return begun;
  TQ_TRY(image.decode());
  std::array<int, 4> colours{};
  int count = 0;
  for (int i = 0; i < image.components() && count < about.components; ++i) {
    if (!image.is_alpha(i)) colours[count++] = i;
  }
  if (count < about.components) return StatusCode::bad_image;
  const int sample_bytes = about.bits > 8 ? 2 : 1;
  RowBuffer<std::uint8_t> line, room;
  TQ_TRY(line.allocate(std::int64_t{about.width} * count * sample_bytes));
  const bool mixes = levels && count == 3 && is_luma_first(image);
  if (mixes) TQ_TRY(room.allocate(std::int64_t{about.width} * 3));
  for (std::int32_t y = 0; y < about.height; ++y) {
    for (int i = 0; i < count; ++i) {
      if (levels) {
        image.for_each_level(colours[i], y, [&](std::ptrdiff_t x, std::uint8_t level) {
          line[x * count + i] = level;
        });
        continue;
      }
      image.for_each(colours[i], y, [&](std::ptrdiff_t x, std::int32_t sample) {
        const auto value = static_cast<std::uint16_t>(sample);
        std::uint8_t* const to = &line[(x * count + i) * sample_bytes];
        if (sample_bytes == 2) {
          std::memcpy(to, &value, sizeof value);
        } else {
          *to = byte(value);
        }
      });
    }
    if (mixes) mix(line.pixels(), about.width, 3, room.pixels());
    const auto put = Status::from_raw(
        picture.row(line.data(), picture.context, y, static_cast<std::int32_t>(line.size())));
    if (put.failed()) return put;
  }
  return kOk;
}

}  // namespace tq::ext
