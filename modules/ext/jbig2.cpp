// JBIG2 by jbig2dec.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" {
#include <jbig2.h>
}

#include "io/endian.h"
#include "modules/ext/decoders.h"

namespace tq::ext {
namespace {

// Memory of the decoder, of which it gets so much. What it keeps of a block stands before it.
struct Allocator {
  Jbig2Allocator functions{take, give_back, change};  // the first member: that is what comes back
  std::size_t left = 0;

  static constexpr std::size_t kHead = alignof(std::max_align_t);

  static Allocator& of(Jbig2Allocator* functions) {
    return *reinterpret_cast<Allocator*>(functions);
  }
  static std::size_t& size_of(void* block) { return *static_cast<std::size_t*>(block); }
  static std::uint8_t* shown(void* block) { return static_cast<std::uint8_t*>(block) + kHead; }
  static void* whole(void* shown) { return static_cast<std::uint8_t*>(shown) - kHead; }

  static void* take(Jbig2Allocator* functions, std::size_t bytes) {
    Allocator& self = of(functions);
    if (bytes > self.left) return nullptr;
    void* const block = std::malloc(kHead + bytes);
    if (block == nullptr) return nullptr;
    size_of(block) = bytes;
    self.left -= bytes;
    return shown(block);
  }
  static void give_back(Jbig2Allocator* functions, void* bytes) {
    if (bytes == nullptr) return;
    of(functions).left += size_of(whole(bytes));
    std::free(whole(bytes));
  }
  static void* change(Jbig2Allocator* functions, void* old, std::size_t bytes) {
    if (old == nullptr) return take(functions, bytes);
    Allocator& self = of(functions);
    const std::size_t before = size_of(whole(old));
    if (bytes > self.left + before) return nullptr;
    void* const block = std::realloc(whole(old), kHead + bytes);
    if (block == nullptr) return nullptr;
    size_of(block) = bytes;
    self.left = self.left + before - bytes;
    return shown(block);
  }
};
static_assert(sizeof(std::size_t) <= Allocator::kHead);

void ignore(void* /*data*/, const char* /*text*/, Jbig2Severity /*severity*/,
            std::uint32_t /*segment*/) {}

// Whether the last segment ends where the data do, or before: the decoder waits for the rest in silence
// (ITU-T T.88, 7.2).
bool is_whole(Bytes coded) {
  constexpr std::uint32_t kUnknown = 0xFFFFFFFF;
  std::size_t at = 0;
  while (at + 11 <= coded.size()) {
    const std::uint32_t number = load_be32(&coded[at]);
    const bool long_page = (coded[at + 4] & 0x40) != 0;
    std::size_t referred = coded[at + 5] >> 5, head = 6;
    if (referred == 7) {
      referred = load_be32(&coded[at + 5]) & 0x1FFFFFFF;
      head = 9 + (referred + 8) / 8;
    }
    const std::size_t number_bytes = number <= 256 ? 1 : number <= 65536 ? 2 : 4;
    if (referred > coded.size()) return false;
    head += referred * number_bytes + (long_page ? 4 : 1) + 4;
    if (head > coded.size() - at) return false;
    const std::uint32_t bytes = load_be32(&coded[at + head - 4]);
    if (bytes == kUnknown) return true;
    if (bytes > coded.size() - at - head) return false;
    at += head + bytes;
  }
  return std::ranges::all_of(coded.subspan(at), [](std::uint8_t filling) { return filling == 0; });
}

class Decoder {
 public:
  explicit Decoder(std::size_t most_bytes) { allocator_.left = most_bytes; }
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;
  ~Decoder() {
    if (page_ != nullptr) jbig2_release_page(context_, page_);
    if (context_ != nullptr) jbig2_ctx_free(context_);
    if (globals_ != nullptr) jbig2_global_ctx_free(globals_);
  }

  // Null when there is no page.
  const Jbig2Image* decode(Bytes globals, Bytes coded) {
    if (!globals.empty()) {
      Jbig2Ctx* const first = open(true);
      if (first == nullptr) return nullptr;
      is_good_ = jbig2_data_in(first, globals.data(), globals.size()) >= 0;
      globals_ = jbig2_make_global_ctx(first);
    }
    context_ = open(!has_file_header(coded));
    if (context_ == nullptr) return nullptr;
    is_good_ = jbig2_data_in(context_, coded.data(), coded.size()) >= 0 && is_good_ &&
               (has_file_header(coded) || is_whole(coded));
    page_ = jbig2_page_out(context_);
    if (page_ != nullptr) return page_;
    // Parts of files need no end of the page.
    is_good_ = jbig2_complete_page(context_) >= 0 && is_good_;
    page_ = jbig2_page_out(context_);
    return page_;
  }
  bool is_good() const { return is_good_; }

 private:
  static bool has_file_header(Bytes coded) {
    constexpr std::uint8_t kMark[] = {0x97, 'J', 'B', '2', '\r', '\n', 0x1A, '\n'};
    return coded.size() >= sizeof kMark &&
           std::equal(std::begin(kMark), std::end(kMark), coded.begin());
  }
  Jbig2Ctx* open(bool embedded) {
    const auto options = embedded ? JBIG2_OPTIONS_EMBEDDED : Jbig2Options{};
    return jbig2_ctx_new(&allocator_.functions, options, globals_, ignore, nullptr);
  }

  Allocator allocator_;
  Jbig2GlobalCtx* globals_ = nullptr;
  Jbig2Ctx* context_ = nullptr;
  Jbig2Image* page_ = nullptr;
  bool is_good_ = true;
};

// ITU-T T.82, which is another coding, begins with the number of planes and a zero.
bool is_first_jbig(Bytes coded) {
  return coded.size() >= 20 && coded[1] <= 1 && coded[2] == 1 && coded[3] == 0;
}

}  // namespace

Status decode_coded_jbig2(Bytes globals, Bytes coded, const img_coded_picture& picture) {
  // Symbols and regions beside the page; a page of which nothing is known may be as large as a drawing.
  constexpr std::int64_t kBeside = 64 << 20, kUnknown = 256 << 20;
  if (is_first_jbig(coded)) return StatusCode::unsupported;
  const std::int64_t page_bytes = (std::int64_t{picture.width} + 7) / 8 * picture.height;
  const bool known = picture.width > 0 && picture.height > 0;
  Decoder decoder(static_cast<std::size_t>(
      kBeside + (known ? std::min<std::int64_t>(4 * page_bytes, INT32_MAX - kBeside) : kUnknown)));
  const Jbig2Image* const page = decoder.decode(globals, coded);
  if (page == nullptr) return StatusCode::bad_image;
  if (page->width > INT32_MAX || page->height > INT32_MAX) return StatusCode::bad_image;
  img_samples about{};
  about.size = sizeof about;
  about.width = static_cast<std::int32_t>(page->width);
  about.height = static_cast<std::int32_t>(page->height);
  about.components = about.bits = 1;
  const auto begun = Status::from_raw(picture.header(&about, picture.context));
  if (begun.failed()) return begun;
  const auto bytes = static_cast<std::int32_t>((page->width + 7) / 8);
  for (std::int32_t y = 0; y < about.height; ++y) {
    std::uint8_t* const row =
        page->data + static_cast<std::ptrdiff_t>(std::int64_t{page->stride} * y);
    const auto put = Status::from_raw(picture.row(row, picture.context, y, bytes));
    if (put.failed()) return put;
  }
  return decoder.is_good() ? kOk : Status::from_raw(IMG_PLUGIN_CONTRADICTS);
}

}  // namespace tq::ext
