// The interface of modules from both sides. A module that does what the input says, behind the
// library: whatever it calls, with whatever arguments, the library keeps its images in order. And
// the LZW module by itself, before a host whose streams and callbacks do what the input says.
#include <dlfcn.h>

#include "fuzz/fuzz_support.h"
#include "tarnquill_plugin.h"

namespace tq::fuzz {
namespace {

// ---- The library before any module --------------------------------------------------------------

std::int32_t IMG_CB_C on_header(void*, void*) {
  return 1;
}
std::int32_t IMG_CB_C on_row(void* row, void* context, std::int32_t y, std::int32_t bytes) {
  static_cast<Digest*>(context)->add(
      {static_cast<const std::uint8_t*>(row), static_cast<std::size_t>(bytes)});
  return y == 7 ? kAborted : 0;
}

void behind_the_library(Input& in) {
  const std::uint8_t kind = in.u8();
  Memory file = {'G', 'I', 'F', '8', '9', 'a', 1, 1, 1, 1};
  file.insert(file.end(), in.rest().begin(), in.rest().end());
  memory_probe::refuse_above(1 << 20);
  if ((kind & 1) != 0) IMGLOW_set_decomp_reduction(kind >> 4);
  if ((kind & 2) != 0) IMGLOW_set_decompsize(5, 5);
  if ((kind & 4) != 0) IMGLOW_set_decomp_rect(1, 1, 3, 9);
  const std::int32_t image = IMG_decompress_bitmap_block(file.data(), file.size(), 0);
  IMGLOW_set_decomp_reduction(0);
  IMGLOW_set_decompsize(0, 0);
  IMGLOW_set_decomp_rect(0, 0, 0, 0);
  TQ_CLAIM(image <= 0);
  if (image == 0) look_at(image);
  if (image < 0) TQ_CLAIM(IMG_delete_bitmap(0) == IMG_BAD_HANDLE);
  Digest digest;
  IMGLOW_decompress_bitmap_block(file.data(), file.size(), 0, on_row, &digest, on_header);
  caller_file = {.bytes = file};
  IMGLOW_set_fileio(caller_read, caller_write, caller_seek);
  const View before = image == 0 ? look_at(image) : View();
  if (image == 0) IMG_save_bitmap_fd(image, 1, IMG_TYPE_GIF);
  IMGLOW_set_fileio(nullptr, nullptr, nullptr);
  if (image == 0) {
    TQ_CLAIM(look_at(image).digest() == before.digest());
    TQ_CLAIM(IMG_delete_bitmap(image) == 0);
  }
  TQ_CLAIM(memory_probe::live_blocks() == 0 && memory_probe::tracked_blocks() == 0);
}

// ---- The module before any host -----------------------------------------------------------------

struct Host {
  Input& in;
  Memory header{};
  std::int32_t headers = 0, rows = 0;

  // Counts that cannot be, now and then, and callbacks that have had enough.
  std::int32_t answer(std::int32_t usual) { return in.u8() >= 250 ? in.any_int() : usual; }

  static std::int32_t IMG_CB_C on_header(void* block, void* context) {
    Host& host = *static_cast<Host*>(context);
    ++host.headers;
    const auto* const bytes = static_cast<const std::uint8_t*>(block);
    host.header.assign(bytes, bytes + IMG_HEADER_BLOCK_BYTES);
    return host.answer(1);
  }
  static std::int32_t IMG_CB_C on_row(void* row, void* context, std::int32_t y,
                                      std::int32_t bytes) {
    Host& host = *static_cast<Host*>(context);
    BitmapInfoHeader header;
    std::memcpy(&header, host.header.data(), sizeof header);
    TQ_CLAIM(host.headers == 1 && y >= 0 && y < header.biHeight);
    TQ_CLAIM(bytes == row_bytes(header.biWidth, header.biBitCount));
    Digest all;
    all.add({static_cast<const std::uint8_t*>(row), static_cast<std::size_t>(bytes)});
    return ++host.rows == 200 ? kAborted : host.answer(0);
  }
  static std::int32_t IMG_CB_C on_supply(void* context, void* dest, std::int32_t y,
                                         std::int32_t bytes) {
    std::memset(dest, y, static_cast<std::size_t>(bytes));
    return static_cast<Host*>(context)->answer(0);
  }
};

template <class Entry>
Entry entry(const char* name) {
  static void* const module = dlopen(TQ_LZW_MODULE, RTLD_NOW | RTLD_LOCAL);
  TQ_CLAIM(module != nullptr);
  return reinterpret_cast<Entry>(dlsym(module, name));
}

void before_a_host(Input& in) {
  const std::uint8_t kind = in.u8();
  Host host{in};
  const Bytes stream = in.take(in.u8() * 4u);
  caller_file = {.bytes = {stream.begin(), stream.end()},
                 .most_per_call = kind / 4 % 16,
                 .failing_call = kind / 64 * 5};
  const bool lacks_some = kind % 4 == 3;
  const img_read_fn read = lacks_some ? nullptr : caller_read;
  entry<img_set_callbacks_fn>("set_callbacks")(read, lacks_some ? nullptr : caller_write,
                                               caller_seek, nullptr);
  const std::int32_t decoded = entry<img_plugin_decode_fn>("decode_gif")(
      static_cast<std::uint32_t>(in.any_int()), Host::on_row, &host, Host::on_header, 1);
  TQ_CLAIM(!lacks_some || decoded == IMG_READ_FAILED);
  if (host.header.empty()) host.header.assign(IMG_HEADER_BLOCK_BYTES, in.u8());
  BitmapInfoHeader header;
  std::memcpy(&header, host.header.data(), sizeof header);
  if (std::int64_t{header.biWidth} * header.biHeight > 1 << 16) return;
  caller_file.bytes.clear();
  caller_file.position = 0;
  const char* const encoder = kind % 2 == 0 ? "encode_gif" : "encode_gifi";
  entry<img_plugin_encode_fn>(encoder)(1, host.header.data(), Host::on_supply, &host);
}

}  // namespace

void fuzz(Bytes bytes) {
  Input in(bytes);
  if (in.u8() % 2 == 0) return behind_the_library(in);
  before_a_host(in);
}

}  // namespace tq::fuzz
