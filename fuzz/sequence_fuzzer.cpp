// Calls the exports in the order, and with the arguments, that the input asks for: legal and
// illegal ones, with callbacks that call back, with memory that runs out. Whatever happens, handles
// are those that were given out, a call that fails leaves its image as it was, and everything is
// given back.
#include <array>
#include <optional>
#include <random>

#include "core/image_table.h"
#include "fuzz/fuzz_support.h"
#include "platform/memory.h"

namespace tq::fuzz {
namespace {

constexpr std::uint64_t kLargestAllowed = 256 << 10;  // bytes; a larger block is refused
constexpr std::size_t kMostCalls = 120;
constexpr std::size_t kMostImages = 20;
constexpr std::size_t kDeepest = 2;  // callbacks within callbacks
constexpr std::int32_t kMostRows = 500;
constexpr std::int32_t kNoImage = -21;  // any_int() never gives it

struct Session {
  Input in;
  std::vector<std::int32_t> images{};  // those that exist
  Memory file{};                       // what was saved last
  // Memory that outlives the calls it is given to.
  std::vector<Memory> blocks{};
  std::vector<std::uint8_t*> global_blocks{};
  std::size_t calls = 0, depth = 0;
  std::int32_t callback_calls = 0, interference_period = 0, rows = 0;
  bool refused = false;    // an allocation, during the call
  bool disturbed = false;  // by a callback that called the library
  bool plain = true;       // no setting has been changed
};
Session* session = nullptr;

Input& in() {
  return session->in;
}

bool exists(std::int32_t image) {
  return std::find(session->images.begin(), session->images.end(), image) != session->images.end();
}

// Makes a call on an image (or kNoImage), maybe with an allocation refused.
template <class Operation>
std::int64_t call(std::int32_t image, Operation operation) {
  Session& s = *session;
  const bool outermost = s.depth == 0, known = exists(image);
  std::optional<View> before, other_before;
  const std::int32_t other = s.images.empty() ? kNoImage : s.images[s.calls % s.images.size()];
  if (outermost) {
    s.refused = s.disturbed = false;
    s.rows = 0;
    if (known) before = look_at(image);
    if (other != kNoImage && other != image) other_before = look_at(other);
    const std::uint8_t chance = in().u8();
    if (chance >= 224) memory_probe::refuse_after(chance % 8);
  }
  const std::int64_t result = operation();
  if (!outermost) return result;
  s.refused = s.refused || memory_probe::refused();
  memory_probe::refuse_after(-1);
  TQ_CLAIM(memory_probe::tracked_blocks() == 0);
  TQ_CLAIM(result >= 0 || (result == kAborted && s.interference_period != 0) ||
           s.rows > kMostRows || (result <= IMG_OUT_OF_MEMORY && result >= IMG_NO_PDF_MODULE));
  if (s.disturbed) return result;
  if (other_before) TQ_CLAIM(look_at(other).digest() == other_before->digest());
  if (image != kNoImage && !known) TQ_CLAIM(result == IMG_BAD_HANDLE);
  if (!known) return result;
  TQ_CLAIM(result != IMG_BAD_HANDLE);
  // Large images have no room for a second form beside them.
  TQ_CLAIM(result != IMG_OUT_OF_MEMORY || s.refused || !before->has_pixels ||
           row_bytes(before->width, 32) * before->height > std::int64_t{kLargestAllowed} / 8);
  TQ_CLAIM(result >= 0 || look_at(image).digest() == before->digest());
  return result;
}

// An image that a call has given out. Its sides and depth are those of its header.
void add_image(std::int64_t handle) {
  if (handle < 0) return;
  const auto image = static_cast<std::int32_t>(handle);
  TQ_CLAIM(!exists(image));
  // The lowest free handle, unless others were free when the call began.
  for (std::int32_t lower = 0; !session->disturbed && session->depth == 0 && lower < image; ++lower)
    TQ_CLAIM(exists(lower));
  session->images.push_back(image);
  look_at(image);
}

void step();

// Now and then a callback calls the library, or answers with an error.
std::int32_t interfere(std::int32_t answer) {
  Session& s = *session;
  const bool due = s.interference_period != 0 && ++s.callback_calls % s.interference_period == 0;
  if (!due || in().empty() || s.depth == kDeepest) return answer;
  const std::uint8_t action = in().u8();
  if (action < 64) return answer;
  if (action >= 224) return kAborted;
  // What was refused so far counts for the outer call; from here on there is memory.
  s.refused = s.refused || memory_probe::refused();
  memory_probe::refuse_after(-1);
  s.disturbed = true;
  ++s.depth;
  step();
  --s.depth;
  return answer;
}

// Files may claim millions of rows.
std::int32_t next_row() {
  return ++session->rows > kMostRows ? kAborted : interfere(0);
}
std::int32_t IMG_CB_STD on_progress(std::intptr_t context, std::int32_t value) {
  TQ_CLAIM(context == 11 && value >= 0);
  return next_row();
}
std::int32_t IMG_CB_C on_header(void*, void* context) {
  return context == nullptr ? IMG_STOP_AFTER_HEADER : interfere(1);
}
std::int32_t IMG_CB_C on_row(void* row, void* context, std::int32_t y, std::int32_t bytes) {
  TQ_CLAIM(context == session && y >= 0 && bytes > 0);
  Digest all;
  all.add({static_cast<const std::uint8_t*>(row), static_cast<std::size_t>(bytes)});
  return next_row();
}
std::int32_t IMG_CB_C on_supply(void* context, void* dest, std::int32_t y, std::int32_t bytes) {
  TQ_CLAIM(context == session && y >= 0 && bytes > 0);
  std::memset(dest, y * 37, static_cast<std::size_t>(bytes));
  return next_row();
}

// Mostly one that exists.
std::int32_t choose_image() {
  const std::uint8_t choice = in().u8();
  const auto& images = session->images;
  return choice >= 240 || images.empty() ? in().any_int() : images[choice % images.size()];
}

std::uint8_t* keep(const Memory& bytes) {
  return session->blocks.emplace_back(bytes).data();
}

std::uint8_t* keep_global(Bytes bytes) {
  memory_probe::refuse_above(kLargestBlock);  // the caller's machine is not that small
  std::uint8_t* const block = alloc_block(std::max<std::size_t>(bytes.size(), 1));
  memory_probe::refuse_above(kLargestAllowed);
  *block = 0;
  std::copy(bytes.begin(), bytes.end(), block);
  session->global_blocks.push_back(block);
  return block;
}

// Header, palette and rows that look random.
Memory choose_dib() {
  constexpr int kBits[] = {1, 4, 8, 16, 24, 32, 1, 2};
  const std::uint8_t kind = in().u8();
  int bits = kBits[kind & 7];
  std::int32_t width = 1 + in().below(40), height = 1 + in().below(24);
  if (kind >= 244) {
    // Too wide for run lists, or with lists that outgrow their first block.
    bits = 1;
    width = kind >= 250 ? 65530 + in().below(8) : 500 + in().u8();
    height = kind >= 250 ? 1 : 200 + in().u8();
  }
  const HeaderBlock header = dib_header(width, height, bits);
  Memory dib(static_cast<std::size_t>(dib_bytes(width, height, bits)));
  // Long runs now and then.
  const std::uint8_t seed = in().u8();
  std::minstd_rand random(seed);
  std::uint8_t last = seed;
  for (std::uint8_t& byte : dib) {
    if (random() / 256 % 256 < (seed % 5 == 0 ? 8 : 200))
      last = static_cast<std::uint8_t>(random());
    byte = last;
  }
  std::memcpy(dib.data(), &header.header, sizeof header.header);
  return dib;
}

// Mostly of a picture, now and then with any sides and any depth.
Memory choose_header(std::uint8_t kind) {
  Memory header = choose_dib();
  // What stays behind the header is enough for every depth's palette.
  header.resize(IMG_HEADER_BLOCK_BYTES);
  if (kind >= 200) std::ranges::copy(in().take(12), header.begin() + 4);
  return header;
}

// Mostly what was saved last, some of it changed; now and then anything.
Memory choose_file() {
  const std::uint8_t kind = in().u8();
  if (kind < 40) return choose_dib();
  const Bytes taken = in().take(kind < 150 ? 0 : in().u8());
  Memory bytes(taken.begin(), taken.end());
  if (kind >= 220 || session->file.empty()) return bytes;
  Memory file = session->file;
  const std::size_t start = in().u8() % file.size();
  std::copy_n(bytes.begin(), std::min(bytes.size(), file.size() - start),
              file.begin() + static_cast<std::ptrdiff_t>(start));
  return file;
}

void create_shell() {
  const std::uint8_t kind = in().u8();
  Memory header = choose_header(kind);
  if (kind % 4 == 1) header[32] = kind, header[33] = 0x10;  // transparent
  add_image(call(kNoImage,
                 [&] { return IMG_create_handle_shell(kind == 255 ? nullptr : keep(header)); }));
}

void create_registered() {
  Memory dib = choose_dib();
  const std::uint8_t kind = in().u8();
  if (kind % 8 == 2) std::fill_n(&dib[kind >= 64 ? 4 : 8], 4, kind >= 128 ? 0xFF : 0);
  if (kind % 8 == 3) dib.resize(in().u8() % dib.size());
  std::uint8_t* const block = kind % 2 != 0 ? keep_global(dib) : keep(dib);
  std::int32_t next = 0;
  while (validate_image_handle(ImageHandle{next}).ok()) ++next;
  const std::int64_t result = call(kNoImage, [&] { return IMG_create_handle_keep(block); });
  TQ_CLAIM(result == next || result == IMG_OUT_OF_MEMORY || result == IMG_BAD_IMAGE);
  if (result != IMG_OUT_OF_MEMORY) add_image(next);  // stays allocated
}

void decode() {
  const Memory file = choose_file();
  const std::int32_t way = in().below(8);
  const std::int32_t page = in().below(3) == 0 ? in().any_int() : 0, start = in().any_int();
  std::uint8_t* const block = way < 2 ? keep_global(file) : keep(file);
  const std::int64_t result = call(kNoImage, [&] {
    if (way == 0) return IMG_create_handle(block);
    if (way == 1) return IMG_decompress_bitmap_mem(block, page);
    if (way == 2) return IMG_decompress_bitmap_fd(IMG_MEMORY_STREAM, start, page);
    if (way == 3) return IMG_create_handle_block(block, file.size());
    if (way < 5) return IMG_decompress_bitmap_block(block, file.size(), page);
    if (way == 5)
      return IMGLOW_decompress_bitmap(IMG_MEMORY_STREAM, start, 0, nullptr, nullptr, on_header);
    return IMGLOW_decompress_bitmap_block(block, file.size(), 0, on_row, session, on_header);
  });
  if (way < 5) add_image(result);
  TQ_CLAIM(way < 5 || result <= 0);
}

void remove() {
  const std::int32_t image = choose_image();
  const bool leaves_block = in().below(4) == 0;
  const std::intptr_t address = IMG_bitmap_info(image, nullptr, nullptr, nullptr);
  const std::int64_t result = call(image, [&] {
    return leaves_block ? IMG_delete_bitmap_keep(image) : IMG_delete_bitmap(image);
  });
  if (result != 0) return;
  std::erase(session->images, image);
  if (session->depth == 0) TQ_CLAIM(IMG_delete_bitmap(image) == IMG_BAD_HANDLE);
  auto* const block = reinterpret_cast<std::uint8_t*>(address);
  if (leaves_block && platform::block_size(block) != 0) session->global_blocks.push_back(block);
}

void set_value() {
  const std::int32_t image = choose_image();
  const std::int32_t kind = in().below(6), value = in().any_int();
  const std::int32_t y = in().any_int();
  const std::int32_t width = in().any_int(), height = in().any_int();
  const std::int64_t result = call(image, [&] {
    if (kind == 0) return IMG_set_croprect(image, value, y, width, height);
    if (kind == 1) return IMG_set_gamma(image, value);
    if (kind == 2) return IMGLOW_set_rop(image, value);
    if (kind == 3) return IMG_set_display_angle(image, value);
    if (kind == 5) return IMG_set_display_tone(image, value, y);
    return IMGLOW_set_transp_color(image, value);
  });
  if (result != 0 || !exists(image)) return;
  look_at(image);
  if (kind == 4) TQ_CLAIM(IMGLOW_get_transp_color(image) == (value & 255));
  TQ_CLAIM(IMGLOW_get_display_rect(image, nullptr, nullptr, nullptr, nullptr) == 0);
}

void move_rows() {
  const std::int32_t image = choose_image();
  const std::int32_t row = in().any_int(), bytes = in().any_int();
  // Nobody knows how large a row of an image at work is.
  if (!exists(image) && session->depth > 0) return;
  const View view = exists(image) ? look_at(image) : View();
  const auto room = static_cast<std::size_t>(row_bytes(view.width, view.bits));
  Memory given(room, in().u8()), got(room, 0x3C);
  const std::int64_t put =
      call(image, [&] { return IMGLOW_put_raster(image, given.data(), row, bytes); });
  const std::int64_t taken =
      call(image, [&] { return IMGLOW_get_raster(image, got.data(), row, bytes); });
  // Nothing is written behind what was asked for; padding is nobody's.
  const std::size_t count = bytes == 0 ? room : static_cast<std::size_t>(std::max(bytes, 0));
  for (std::size_t i = 0; i < room; ++i) {
    if (taken != 0 || i >= count) TQ_CLAIM(got[i] == 0x3C);
    const bool pixel = one_of(view.bits, {8, 24, 32}) &&
                       static_cast<std::int64_t>(i) < std::int64_t{view.width} * view.bits / 8;
    if (put == 0 && taken == 0 && i < count && pixel) TQ_CLAIM(got[i] == given[i]);
  }
}

void move_palette() {
  const std::int32_t image = choose_image();
  std::array<Rgb, 256> palette{}, back{};
  for (Rgb& entry : palette) entry = {in().u8(), 7, 7, 0};
  if (call(image, [&] { return IMGLOW_put_palette(image, palette.data()); }) != 0) return;
  const std::int32_t entries = IMG_bitmap_palette(image);
  if (entries < 0) return;
  TQ_CLAIM(IMGLOW_get_palette(image, back.data()) == 0);
  TQ_CLAIM(std::memcmp(palette.data(), back.data(), 4 * static_cast<std::size_t>(entries)) == 0);
}

// Pixels in another form, or other pixels; the sides stay.
void convert() {
  using Conversion = std::int32_t(IMG_CALL*)(std::int32_t);
  constexpr Conversion kConversions[] = {IMG_runs_to_dib,      IMG_dib_to_runs, IMG_color_gray,
                                         IMG_mediancut_color,  IMG_bayer_mono,  IMG_halftone_mono,
                                         IMG_popularity_color, IMG_promote_8,   IMG_diffusion_mono,
                                         IMG_diffusion_color,  IMG_bayer_color, IMG_promote_24,
                                         IMG_promote_32,       IMG_dib_to_runs};
  const std::int32_t image = choose_image();
  const std::int32_t kind = in().below(16), value = in().any_int();
  const View before = exists(image) ? look_at(image) : View();
  const std::int64_t result = call(image, [&] {
    if (kind == 14) return IMG_thresh_mono(image, value);
    if (kind == 15) return IMG_octree_color(image, 8, nullptr, value);
    return kConversions[kind](image);
  });
  if (result < 0 || session->disturbed || session->depth > 0) return;
  const View after = look_at(image);
  TQ_CLAIM(after.width == before.width && after.height == before.height);
  if (kind < 2 || kind == 13) TQ_CLAIM(after.pixels() == before.pixels());
}

std::int32_t set_caller_io(std::int32_t value, std::int32_t failing_call) {
  caller_file = {.bytes = choose_file(),
                 .most_per_call = std::max(value % 50, 0),
                 .failing_call = failing_call % 40,
                 .before_call = [] { return interfere(0); }};
  const int parts = value % 4 == 0 ? 7 : in().below(8);
  return IMGLOW_set_fileio((parts & 1) != 0 ? caller_read : nullptr,
                           (parts & 2) != 0 ? caller_write : nullptr,
                           (parts & 4) != 0 ? caller_seek : nullptr);
}

std::int32_t set_one(std::int32_t kind, std::int32_t value, std::int32_t other) {
  // What is scaled or cut needs no memory for its rows: somebody must count them.
  if (kind < 3) IMG_set_statusbar(11, on_progress, 1);
  if (kind == 0) session->interference_period = in().u8() % 16;
  if (kind == 1) return IMGLOW_set_decompsize(value, other);
  if (kind == 2) return IMGLOW_set_decomp_rect(value, other, in().i8(), 20);
  if (kind == 3) return IMGLOW_set_decomp_reduction(value);
  if (kind == 4) return IMG_set_encrypt(value & 1, other);
  if (kind == 5) return IMGLOW_set_dithermode(value);
  if (kind == 6) return IMGLOW_set_comp_quality(value) | IMGLOW_set_jpg_interleave(other, value);
  if (kind == 7) return set_caller_io(value, other);
  if (kind == 8) {
    const std::int32_t before = IMGLOW_get_auto_detect(value);
    return (other > 0 ? IMGLOW_set_auto_detect : IMGLOW_unset_auto_detect)(value)-before;
  }
  TQ_CLAIM(IMG_create_handle_ddb(session) == IMG_NO_DEVICE_BITMAP);
  return IMGLOW_set_dispfunc(value, value) | IMGLOW_autocolor(value) | IMGLOW_set_alias(value) |
         IMGLOW_set_alias_quality(value) | IMGLOW_set_wipedelay(value) | IMG_unload_plugins() |
         IMG_ifl_version(nullptr, nullptr);
}

void set_setting() {
  const std::int32_t kind = in().below(10), value = in().any_int(), other = in().any_int();
  session->plain = false;
  TQ_CLAIM(set_one(kind, value, other) == 0);
}

void reset_settings() {
  session->interference_period = 0;
  session->plain = true;
  TQ_CLAIM((IMG_set_statusbar(0, nullptr, 0) | IMGLOW_set_decomp_reduction(0) |
            IMGLOW_set_decompsize(0, 0) | IMGLOW_set_decomp_rect(0, 0, 0, 0) |
            IMGLOW_set_dithermode(1) | IMG_set_encrypt(0, 0) |
            IMGLOW_set_fileio(nullptr, nullptr, nullptr)) == 0);
  for (std::int32_t code = 0; code <= 66; ++code) {
    const bool on = code != IMG_TYPE_TEXT && code != 66;
    TQ_CLAIM((on ? IMGLOW_set_auto_detect(code) : IMGLOW_unset_auto_detect(code)) >= 0);
  }
}

std::int32_t choose_code() {
  constexpr std::int32_t kCodes[] = {IMG_TYPE_BMP,  IMG_TYPE_DIB, IMG_TYPE_BMP_RLE, IMG_TYPE_GIF,
                                     IMG_TYPE_PDF,  IMG_TYPE_PCX, IMG_TYPE_DCX,     IMG_TYPE_PNG,
                                     IMG_TYPE_JPEG, 66,           IMG_TYPE_BY_NAME, 100000};
  return kCodes[in().below(std::size(kCodes))];
}

void save_to_memory() {
  Session& s = *session;
  const std::int32_t image = choose_image(), code = choose_code();
  if (!exists(image) && s.depth > 0) return;
  const View view = exists(image) ? look_at(image) : View();
  const std::uint8_t kind = in().u8();
  const bool to_stream = kind % 16 == 7;
  std::size_t room = 3000 + view.rows.size() * 2 + 8 * static_cast<std::size_t>(view.height);
  if (kind >= 200) room = room * (kind - 200) / 60;
  const Memory empty(room, 0x77);
  std::uint8_t* const block = kind % 2 != 0 ? keep_global(empty) : keep(empty);
  const std::int64_t result = call(image, [&] {
    if (kind == 9) return IMG_save_bitmap(image, "/dev/null/none", code);
    if (to_stream) return IMG_save_bitmap_fd(image, kind < 128 ? IMG_MEMORY_STREAM : -1, code);
    return kind % 2 != 0 ? IMG_save_bitmap_mem(image, block, code)
                         : IMG_save_bitmap_block(image, block, room, code);
  });
  if (result <= 0 || to_stream || s.disturbed || s.depth > 0) return;
  TQ_CLAIM(look_at(image).digest() == view.digest());
  if (!s.plain) return;
  TQ_CLAIM(result <= static_cast<std::int64_t>(room));
  s.file.assign(block, block + result);
  for (std::size_t i = s.file.size(); i < room; ++i) TQ_CLAIM(block[i] == 0x77);
}

void save_rows() {
  const std::uint8_t kind = in().u8();
  std::uint8_t* const block = keep(choose_header(kind));
  const std::int32_t code = choose_code();
  std::uint8_t* const out = keep_global(Memory(in().u8() * 64u));
  call(kNoImage, [&] {
    return kind % 3 == 0 ? IMGLOW_save_bitmap(IMG_MEMORY_STREAM, block, code, on_supply, session)
                         : IMGLOW_save_bitmap_mem(out, block, code,
                                                  kind % 32 == 31 ? nullptr : on_supply, session);
  });
}

// Any view in a window of some size; nothing is written around it.
void show_view() {
  const std::int32_t image = choose_image();
  img_view view{};
  std::int32_t* const fields[] = {&view.source_x,      &view.source_y,     &view.source_width,
                                  &view.source_height, &view.zoom,         &view.scroll_x,
                                  &view.scroll_y,      &view.device_dpi_x, &view.device_dpi_y};
  const std::uint8_t some = in().u8();
  for (std::size_t i = 0; i < std::size(fields); ++i) {
    if ((some >> i % 8 & 1) != 0) *fields[i] = in().any_int();
  }
  view.bytes = some == 99 ? in().any_int() % 100 : static_cast<std::int32_t>(sizeof view);
  view.width = 1 + in().below(64);
  view.height = 1 + in().below(32);
  view.fit = in().below(9);
  view.angle = 90 * in().below(5);
  view.flags = in().below(64);
  IMG_zoom_view(image, &view, in().u8(), in().u8(), in().any_int());
  IMG_scroll_view(image, &view, in().any_int(), in().any_int());
  std::int32_t x = 0, y = 0;
  IMG_window_to_image(image, &view, in().any_int(), in().any_int(), &x, &y);
  IMG_image_to_window(image, &view, x, y, &x, &y);
  constexpr std::int32_t kFormats[] = {IMG_PIXELS_GREY, IMG_PIXELS_BGR, IMG_PIXELS_BGRX, 16};
  const std::int32_t format = kFormats[in().below(4)];
  const std::int32_t first = in().below(view.height + 1), rows = in().below(32);
  const std::ptrdiff_t stride = view.width * format / 8 + in().below(4);
  constexpr std::ptrdiff_t kGuard = 64;
  Memory pixels(static_cast<std::size_t>(2 * kGuard + stride * rows), 0x5A);
  call(image, [&] {
    return IMGLOW_render_view(image, &view, format, &pixels[kGuard], stride, first, rows);
  });
  for (std::size_t i = 0; i < kGuard; ++i) {
    TQ_CLAIM(pixels[i] == 0x5A && pixels[pixels.size() - 1 - i] == 0x5A);
  }
}

void step() {
  if (++session->calls > kMostCalls) return;
  if (session->images.size() >= kMostImages) return remove();
  constexpr void (*kActions[])() = {
      create_shell, create_registered, decode,      remove,         set_value,
      move_rows,    move_palette,      convert,     set_setting,    save_to_memory,
      save_rows,    reset_settings,    decode,      decode,         convert,
      convert,      set_setting,       set_setting, save_to_memory, move_rows,
      decode,       show_view};
  kActions[in().below(std::size(kActions))]();
}

}  // namespace

void fuzz(Bytes input) {
  Session s{.in = Input(input)};
  session = &s;
  reset_settings();
  memory_probe::refuse_above(kLargestAllowed);
  // The memory stream is open on something that lives.
  static std::uint8_t nothing[16];
  std::memset(nothing, 0, sizeof nothing);
  TQ_CLAIM(IMGLOW_get_filetype_block(nothing, sizeof nothing) == IMG_UNSUPPORTED);
  while (!in().empty() && s.calls < kMostCalls) step();
  reset_settings();
  // Whatever is left over, those included that nobody knows of.
  for (std::int32_t image = 0; image < 500; ++image) {
    const bool known = exists(image);
    if (known) look_at(image);
    TQ_CLAIM(IMG_delete_bitmap(image) == 0 || !known);
  }
  for (std::uint8_t* block : s.global_blocks) free_block(block);
  IMGLOW_get_filetype_block(nothing, sizeof nothing);
  TQ_CLAIM(memory_probe::live_blocks() == 0);
}

}  // namespace tq::fuzz
