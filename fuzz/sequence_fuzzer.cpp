// Calls the exports in the order, and with the arguments, that the input asks for: legal and
// illegal ones, with callbacks that call back, with memory that runs out. A model says what every
// image must look like.
#include "fuzz/sequence_session.h"

namespace tq::fuzz {

Session* Session::running = nullptr;

void Session::expect(std::int64_t result, std::initializer_list<std::int64_t> codes) const {
  if (result >= 0) return;
  if (result == IMG_OUT_OF_MEMORY && may_lack_memory()) return;
  if (result == kAborted && interference_period_ != 0) return;
  if (!one_of(result, codes)) std::fprintf(stderr, "status %lld\n", static_cast<long long>(result));
  TQ_CLAIM(one_of(result, codes));
}

// ---- Images and memory -------------------------------------------------------------------------

ImageModel* Session::find(std::int32_t handle) {
  const auto found = std::find_if(images_.begin(), images_.end(),
                                  [&](const ImageModel& model) { return model.handle == handle; });
  return found == images_.end() ? nullptr : &*found;
}

// Mostly one that exists.
std::int32_t Session::choose_handle() {
  const std::uint8_t choice = in_.u8();
  if (choice >= 240 || images_.empty()) return choice % 2 == 0 ? in_.i8() : in_.any_int();
  return images_[choice % images_.size()].handle;
}

std::int32_t Session::lowest_free() const {
  for (std::int32_t handle = 0;; ++handle) {
    if (const_cast<Session*>(this)->find(handle) == nullptr) return handle;
  }
}

ImageModel& Session::add_image(std::int32_t handle, const Picture& picture) {
  // An image at work elsewhere may hold a lower handle.
  TQ_CLAIM(find(handle) == nullptr);
  if (undisturbed()) TQ_CLAIM(handle == lowest_free());
  images_.push_back({.handle = handle,
                     .serial = next_serial_++,
                     .picture = picture,
                     .crop = {0, 0, picture.width, picture.height}});
  return images_.back();
}

void Session::forget(std::int32_t handle) {
  std::erase_if(images_, [&](const ImageModel& model) { return model.handle == handle; });
}

void Session::verify_all() const {
  for (const ImageModel& model : images_) verify(model);
}

std::uint8_t* Session::keep(Bytes bytes) {
  return blocks_.emplace_back(bytes).data();
}

std::uint8_t* Session::keep_global(Bytes bytes) {
  memory_probe::refuse_above(kLargestBlock);  // the caller's machine is not that small
  std::uint8_t* const block = alloc_block(bytes.size());
  memory_probe::refuse_above(kLargestAllowed);
  TQ_CLAIM(block != nullptr);
  std::copy(bytes.begin(), bytes.end(), block);
  global_blocks_.push_back(block);
  return block;
}

Picture Session::choose_picture() {
  constexpr std::int32_t kBits[] = {1, 4, 8, 16, 24, 32, 1, 2};
  const std::uint8_t kind = in_.u8();
  const std::int32_t bits = kBits[kind & 7];
  if (kind >= 250) return make_picture(65530 + in_.below(8), 1, 1, in_.u8());
  // Run lists that outgrow their first block.
  if (kind >= 244) return make_picture(500 + in_.u8(), 200 + in_.u8(), 1, in_.u8());
  return make_picture(1 + in_.below(40), 1 + in_.below(24), bits, in_.u8());
}

// A file to decode: mostly a BMP, sometimes anything.
std::vector<std::uint8_t> Session::choose_file() {
  const std::uint8_t kind = in_.u8();
  if (kind < 160) return bmp_file(choose_picture());
  const Bytes taken = in_.take(in_.u8());
  std::vector<std::uint8_t> bytes(taken.begin(), taken.end());
  if (kind < 220) {
    // A BMP with other headers and another end.
    std::vector<std::uint8_t> file = bmp_file(choose_picture());
    std::copy_n(bytes.begin(), std::min({bytes.size(), file.size() - 10, std::size_t{30}}),
                file.begin() + 10);
    bytes = file;
  }
  // Millions of rows would be delivered one by one.
  for (const std::size_t at : {8u, 22u}) {
    if (bytes.size() >= at + 4) bytes[at + 2] = bytes[at + 3] = bytes[at + 1] >> 7 ? 0xFF : 0;
  }
  return bytes;
}

// ---- Settings ----------------------------------------------------------------------------------

void Session::set_progress() {
  const bool on = in_.below(3) != 0;
  const bool null = in_.below(8) == 7;
  interference_period_ = in_.u8() % 16;
  progress_ = on && !null;
  TQ_CLAIM(IMG_set_statusbar(11, null ? nullptr : on_progress, on ? 1 : 0) == 0);
}

void Session::set_decode_settings() {
  switch (in_.below(4)) {
    case 0:
      reduction_ = in_.any_int();
      TQ_CLAIM(IMGLOW_set_decomp_reduction(reduction_) == 0);
      if (!one_of(reduction_, {1, 4, 8})) reduction_ = 0;
      break;
    case 1: {
      const std::int32_t width = in_.any_int(), height = in_.any_int();
      TQ_CLAIM(IMGLOW_set_decompsize(width, height) == 0);
      sized_ = width >= 1 && height >= 1;
      break;
    }
    case 2: {
      const std::int32_t x = in_.any_int(), y = in_.any_int();
      const std::int32_t width = in_.any_int(), height = in_.any_int();
      TQ_CLAIM(IMGLOW_set_decomp_rect(x, y, width, height) == 0);
      cut_ = x > 0 || y > 0 || width != 0 || height != 0;
      break;
    }
    default:
      TQ_CLAIM(IMGLOW_set_dithermode(in_.i8()) == 0);
      break;
  }
}

void Session::set_other_settings() {
  const std::int32_t value = in_.any_int();
  TQ_CLAIM(IMGLOW_set_dispfunc(value, value) == 0);
  TQ_CLAIM(IMGLOW_autocolor(value) == 0);
  TQ_CLAIM(IMGLOW_set_alias(value) == 0);
  TQ_CLAIM(IMGLOW_set_alias_quality(value) == 0);
  TQ_CLAIM(IMGLOW_set_wipedelay(value) == 0);
  std::int32_t major = 0, minor = 0;
  TQ_CLAIM(IMG_ifl_version(&major, &minor) == 0 && major == 8 && minor == 3);
  TQ_CLAIM(IMG_ifl_version(nullptr, nullptr) == 0);
}

void Session::switch_detection() {
  const std::int32_t code = in_.any_int();
  const std::int32_t before = IMGLOW_get_auto_detect(code);
  TQ_CLAIM((code >= 0 && code <= 66) == (before >= 0));
  TQ_CLAIM(before >= 0 || before == IMG_UNSUPPORTED);
  const bool on = in_.below(2) == 0;
  TQ_CLAIM((on ? IMGLOW_set_auto_detect(code) : IMGLOW_unset_auto_detect(code)) == before);
  if (before >= 0) TQ_CLAIM(IMGLOW_get_auto_detect(code) == (on ? 1 : 0));
  bmp_switched_off_ = IMGLOW_get_auto_detect(IMG_TYPE_BMP) == 0;
}

void Session::set_caller_io() {
  const std::uint8_t which = in_.u8();
  caller_ = {.content = choose_file(),
             .most_per_call = which >= 128 ? which % 50 : 0,
             .calls_to_failure = which % 16 == 7 ? in_.u8() : 0};
  // Mostly all or none.
  const int parts = which % 3 == 0 ? 0 : which % 3 == 1 ? 7 : in_.below(8);
  TQ_CLAIM(IMGLOW_set_fileio((parts & 1) != 0 ? on_read : nullptr,
                             (parts & 2) != 0 ? on_write : nullptr,
                             (parts & 4) != 0 ? on_seek : nullptr) == 0);
  caller_io_ = parts != 0;
}

void Session::set_scrambling() {
  scrambled_ = in_.below(3) == 0;
  TQ_CLAIM(IMG_set_encrypt(scrambled_ ? 1 : 256, in_.any_int()) == 0);
}

// ---- Callbacks ---------------------------------------------------------------------------------

// Now and then a callback calls the library, or answers with an error.
std::int32_t Session::interfere(std::int32_t answer) {
  if (interference_period_ == 0 || ++callback_calls_ % interference_period_ != 0) return answer;
  if (in_.empty() || depth_ == kDeepest) return answer;
  const std::uint8_t action = in_.u8();
  if (action < 64) return answer;
  if (action >= 224) return kAborted;
  // What was refused so far counts for the outer call; from here on there is memory.
  refused_ = refused_ || memory_probe::refused();
  memory_probe::refuse_after(-1);
  ++interferences_;
  ++depth_;
  step();
  --depth_;
  return answer;
}

std::int32_t IMG_CB_STD Session::on_progress(std::intptr_t context, std::int32_t value) {
  TQ_CLAIM(context == 11 && value >= 0);
  return running->interfere(0);
}

std::int32_t IMG_CB_C Session::on_read(std::int32_t, void* buffer, std::int32_t count) {
  TQ_CLAIM(count > 0);
  std::memset(buffer, 0x99, static_cast<std::size_t>(count));  // all of it must be there
  if (running->interfere(0) < 0) return -5;
  auto& file = running->caller_;
  if (--file.calls_to_failure == 0) return INT32_MIN;
  const auto size = static_cast<std::int64_t>(file.content.size());
  if (file.position < 0 || file.position >= size) return 0;
  std::int64_t got = std::min<std::int64_t>(count, size - file.position);
  if (file.most_per_call != 0) got = std::min<std::int64_t>(got, file.most_per_call);
  std::copy_n(&file.content[static_cast<std::size_t>(file.position)], got,
              static_cast<std::uint8_t*>(buffer));
  file.position += got;
  return static_cast<std::int32_t>(got);
}

std::int32_t IMG_CB_C Session::on_write(std::int32_t, void* buffer, std::int32_t count) {
  TQ_CLAIM(count > 0);
  if (running->interfere(0) < 0) return 0;
  auto& file = running->caller_;
  if (--file.calls_to_failure == 0) return count / 2;
  const std::size_t end = file.content.size() + static_cast<std::size_t>(count);
  if (end > kMostCallerBytes) return 0;
  const auto* bytes = static_cast<const std::uint8_t*>(buffer);
  file.content.insert(file.content.end(), bytes, bytes + count);
  // Writers may be given their own buffer to scribble on.
  std::memset(buffer, 0x66, static_cast<std::size_t>(count));
  return count;
}

std::int32_t IMG_CB_C Session::on_seek(std::int32_t, std::int32_t offset, std::int32_t origin) {
  TQ_CLAIM(origin >= 0 && origin <= 2);
  if (running->interfere(0) < 0) return -5;
  auto& file = running->caller_;
  const std::int64_t from[] = {0, file.position, static_cast<std::int64_t>(file.content.size())};
  file.position = from[origin] + offset;
  return static_cast<std::int32_t>(file.position);
}

std::int32_t IMG_CB_C Session::on_header(void* header, void* context) {
  TQ_CLAIM(context == running);
  Digest all;
  all.add({static_cast<const std::uint8_t*>(header), IMG_HEADER_BLOCK_BYTES});
  return running->interfere(1);
}

std::int32_t IMG_CB_C Session::on_row(void* row, void* context, std::int32_t y,
                                      std::int32_t bytes) {
  TQ_CLAIM(context == running && y >= 0 && bytes > 0);
  Digest all;
  all.add({static_cast<const std::uint8_t*>(row), static_cast<std::size_t>(bytes)});
  return ++running->sink_rows_ > 500 ? kAborted : running->interfere(0);
}

std::int32_t IMG_CB_C Session::on_supply(void* context, void* dest, std::int32_t y,
                                         std::int32_t bytes) {
  TQ_CLAIM(context == running && y >= 0 && bytes > 0);
  std::memset(dest, y * 37, static_cast<std::size_t>(bytes));
  return ++running->sink_rows_ > 500 ? kAborted : running->interfere(0);
}

// ---- The sequence ------------------------------------------------------------------------------

void Session::step() {
  if (++calls_ > kMostCalls) return;
  using Action = void (Session::*)();
  constexpr Action kActions[] = {
      &Session::create_shell,
      &Session::create_registered,
      &Session::decode,
      &Session::decode,
      &Session::remove,
      &Session::query_image,
      &Session::set_crop,
      &Session::set_display_values,
      &Session::set_transparent,
      &Session::get_raster,
      &Session::put_raster,
      &Session::move_palette,
      &Session::change_form,
      &Session::set_progress,
      &Session::set_decode_settings,
      &Session::set_caller_io,
      &Session::set_scrambling,
      &Session::query_file,
      &Session::save_to_block,
      &Session::save_to_stream,
      &Session::save_to_name,
      &Session::save_rows,
      &Session::decode_to_sink,
      &Session::switch_detection,
      &Session::create_device,
      &Session::set_other_settings,
      &Session::reset_settings,
      &Session::put_raster,
      &Session::change_form,
      &Session::save_to_block,
      &Session::set_progress,
      &Session::set_decode_settings,
  };
  (this->*kActions[in_.below(static_cast<std::int32_t>(std::size(kActions)))])();
}

void Session::reset_settings() {
  interference_period_ = 0;
  reduction_ = 0;
  sized_ = cut_ = scrambled_ = caller_io_ = progress_ = bmp_switched_off_ = false;
  TQ_CLAIM(IMG_set_statusbar(0, nullptr, 0) == 0);
  TQ_CLAIM(IMGLOW_set_decomp_reduction(0) == 0);
  TQ_CLAIM(IMGLOW_set_decompsize(0, 0) == 0);
  TQ_CLAIM(IMGLOW_set_decomp_rect(0, 0, 0, 0) == 0);
  TQ_CLAIM(IMGLOW_set_dithermode(1) == 0);
  TQ_CLAIM(IMG_set_encrypt(0, 0) == 0);
  TQ_CLAIM(IMGLOW_set_fileio(nullptr, nullptr, nullptr) == 0);
  for (std::int32_t code = 0; code <= 66; ++code) {
    const bool off = code == IMG_TYPE_TEXT || code == 66;
    TQ_CLAIM((off ? IMGLOW_unset_auto_detect(code) : IMGLOW_set_auto_detect(code)) >= 0);
  }
}

void Session::run() {
  running = this;
  blocks_.reserve(4 * kMostCalls);
  reset_settings();
  memory_probe::refuse_above(kLargestAllowed);
  // The memory stream is open on something that lives.
  static std::uint8_t nothing[16];
  std::fill(std::begin(nothing), std::end(nothing), std::uint8_t{0});
  TQ_CLAIM(IMGLOW_get_filetype_block(nothing, sizeof nothing) == IMG_UNSUPPORTED);
  while (!in_.empty() && calls_ < kMostCalls) step();
  reset_settings();
  verify_all();
  // Whatever is left over, those included that nobody knows of.
  for (std::int32_t handle = 0; handle < 4 * kMostCalls; ++handle) {
    const bool known = find(handle) != nullptr;
    const std::int32_t deleted = IMG_delete_bitmap(handle);
    TQ_CLAIM(known ? deleted == 0 : one_of(deleted, {0, IMG_BAD_HANDLE}));
  }
  for (std::uint8_t* block : global_blocks_) free_block(block);
  IMGLOW_get_filetype_block(nothing, sizeof nothing);
}

}  // namespace tq::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tq::fuzz::Session session({data, size});
  session.run();
  TQ_CLAIM(tq::memory_probe::live_blocks() == 0);
  return 0;
}
