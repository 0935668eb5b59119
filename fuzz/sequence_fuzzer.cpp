// Calls the exports in the order, and with the arguments, that the input asks for: legal and
// illegal ones, with callbacks that call back, with memory that runs out. A model says what every
// image must look like.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include "core/image_table.h"
#include "fuzz/fuzz_support.h"
#include "fuzz/image_model.h"
#include "include/tarnquill.h"
#include "platform/memory.h"

namespace tq::fuzz {
namespace {

constexpr std::uint64_t kLargestAllowed = 256 << 10;  // bytes; a larger block is refused
constexpr std::int32_t kAborted = -777;               // a callback's own answer
constexpr int kMostCalls = 120;
constexpr std::size_t kMostImages = 20;
constexpr std::size_t kMostCallerBytes = 256 << 10;
constexpr int kDeepest = 2;  // callbacks within callbacks

// The folder of named files; gone when the program ends.
struct Folder {
  Folder() : path("/dev/shm/tarnquill-fuzz-" + std::to_string(getpid())) {
    std::filesystem::create_directory(path);
  }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  std::string path;
};

std::vector<std::uint8_t> file_content(const std::string& name) {
  std::vector<std::uint8_t> bytes;
  const int file = open(name.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return bytes;
  bytes.resize(static_cast<std::size_t>(lseek(file, 0, SEEK_END)));
  TQ_CLAIM(pread(file, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
  close(file);
  return bytes;
}

void write_file(const std::string& name, Bytes content) {
  const int file = open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  TQ_CLAIM(file >= 0);
  TQ_CLAIM(write(file, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
  close(file);
}

class Session {
 public:
  explicit Session(Bytes input) : in_(input) {}
  void run();

 private:
  // Calls `operation`, maybe with an allocation refused. Callbacks end the refusal.
  template <class Operation>
  std::int64_t call(Operation&& operation);

  // The result must be a success or one of these; out of memory only when there was a reason.
  void expect(std::int64_t result, std::initializer_list<std::int64_t> codes) const;
  bool may_lack_memory() const { return refused_; }
  bool nested() const { return depth_ > 0; }
  // No callback has called the library during the last call, which was not made by one either.
  bool undisturbed() const { return !nested() && interferences_ == interferences_before_; }
  bool plain_io() const { return !caller_io_ && !scrambled_; }
  bool plain_decoding() const { return reduction_ == 0 && !sized_ && !cut_; }

  // Images.
  ImageModel* find(std::int32_t handle);
  std::int32_t choose_handle();
  std::int32_t lowest_free() const;
  ImageModel& add_image(std::int32_t handle, const Picture& picture);
  void forget(std::int32_t handle);
  void verify_all() const;

  // Memory that outlives the calls it is given to.
  std::uint8_t* keep(Bytes bytes);
  std::uint8_t* keep_global(Bytes bytes);

  Picture choose_picture();
  std::vector<std::uint8_t> choose_file();
  void finish_decode(std::int64_t result, const Picture* expected);

  void step();
  void create_shell();
  void create_registered();
  void create_device();
  void decode();
  void decode_to_sink();
  void remove();
  void query_image();
  void set_crop();
  void set_display_values();
  void set_transparent();
  void get_raster();
  void put_raster();
  void move_palette();
  void change_form();
  void set_progress();
  void set_decode_settings();
  void set_other_settings();
  void switch_detection();
  void set_caller_io();
  void set_scrambling();
  void query_file();
  void save_to_block();
  void save_to_stream();
  void save_to_name();
  void save_rows();
  void reset_settings();

  // Callbacks: what they answer, after what they have done.
  std::int32_t interfere(std::int32_t answer);
  static std::int32_t IMG_CB_STD on_progress(std::intptr_t context, std::int32_t value);
  static std::int32_t IMG_CB_C on_read(std::int32_t stream, void* buffer, std::int32_t count);
  static std::int32_t IMG_CB_C on_write(std::int32_t stream, void* buffer, std::int32_t count);
  static std::int32_t IMG_CB_C on_seek(std::int32_t stream, std::int32_t offset,
                                       std::int32_t origin);
  static std::int32_t IMG_CB_C on_header(void* header, void* context);
  static std::int32_t IMG_CB_C on_row(void* row, void* context, std::int32_t y, std::int32_t bytes);
  static std::int32_t IMG_CB_C on_supply(void* context, void* dest, std::int32_t y,
                                         std::int32_t bytes);

  Input in_;
  std::vector<ImageModel> images_;
  std::vector<ExactBytes> blocks_;
  std::vector<std::uint8_t*> global_blocks_;
  std::uint64_t next_serial_ = 1;
  int calls_ = 0, depth_ = 0;
  std::uint64_t interferences_ = 0;  // nested calls so far
  std::uint64_t interferences_before_ = 0;
  std::uint32_t callback_calls_ = 0, interference_period_ = 0;
  bool refused_ = false;
  bool caller_io_ = false, scrambled_ = false, progress_ = false;
  std::int32_t reduction_ = 0;
  bool sized_ = false, cut_ = false;
  bool bmp_switched_off_ = false;
  std::int32_t sink_rows_ = 0;
  struct {
    std::vector<std::uint8_t> content;
    std::int64_t position = 0;
    std::int32_t most_per_call = 0, calls_to_failure = 0;
  } caller_;
};

Session* session = nullptr;

const Folder& folder() {
  static const Folder made;
  return made;
}

template <class Operation>
std::int64_t Session::call(Operation&& operation) {
  const bool outermost = !nested();
  if (outermost) {
    refused_ = false;
    interferences_before_ = interferences_;
    const std::uint8_t chance = in_.u8();
    if (chance >= 224) memory_probe::refuse_after(chance % 8);
  }
  const std::int64_t result = operation();
  if (outermost) {
    refused_ = refused_ || memory_probe::refused();
    memory_probe::refuse_after(-1);
    TQ_CLAIM(memory_probe::tracked_blocks() == 0);
  }
  return result;
}

void Session::expect(std::int64_t result, std::initializer_list<std::int64_t> codes) const {
  if (result >= 0) return;
  if (result == IMG_OUT_OF_MEMORY && may_lack_memory()) return;
  if (result == kAborted && interference_period_ != 0) return;
  if (!one_of(result, codes)) std::fprintf(stderr, "status %lld\n", static_cast<long long>(result));
  TQ_CLAIM(one_of(result, codes));
}

// ---- Images -----------------------------------------------------------------------------------

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
  std::uint8_t* const block = alloc_block(bytes.size());
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

// ---- Creating and deleting --------------------------------------------------------------------

void Session::create_shell() {
  if (images_.size() >= kMostImages) return;
  Picture picture = choose_picture();
  std::vector<std::uint8_t> header = header_bytes(picture);
  const std::uint8_t kind = in_.u8();
  std::optional<std::int32_t> transparent;
  if (kind % 4 == 1) {
    transparent = in_.u8();
    header[32] = static_cast<std::uint8_t>(*transparent);
    header[33] = 0x10;
  }
  if (kind >= 200) {
    // Any geometry. What stays behind the header is enough for every depth's palette.
    header.resize(IMG_HEADER_BLOCK_BYTES);
    for (std::size_t at = 4; at < 16; ++at) header[at] = in_.u8();
  }
  const ExactBytes exact(header);
  const bool null = kind == 255;
  const std::int64_t result =
      call([&] { return IMG_create_handle_shell(null ? nullptr : exact.data()); });
  if (kind >= 200) {
    expect(result, {IMG_BAD_IMAGE, IMG_OUT_OF_MEMORY});
    if (result < 0) return;
    picture = read_picture(static_cast<std::int32_t>(result));
  } else {
    expect(result, {});
  }
  if (result < 0) return;
  std::fill(picture.rows.begin(), picture.rows.end(), std::uint8_t{0});
  picture.normalise_mono_palette();
  ImageModel& model = add_image(static_cast<std::int32_t>(result), picture);
  model.transparent = transparent;
  verify(model);
}

void Session::create_registered() {
  if (images_.size() >= kMostImages) return;
  Picture picture = choose_picture();
  std::vector<std::uint8_t> dib = packed_dib(picture);
  const std::uint8_t kind = in_.u8();
  bool bad = false;
  const bool global = kind % 2 != 0;
  if (kind % 8 == 2) {
    const std::size_t side = in_.below(2) == 0 ? 4 : 8;
    std::fill_n(dib.begin() + static_cast<std::ptrdiff_t>(side), 4, kind >= 128 ? 0xFF : 0);
    bad = true;
  } else if (global && kind % 8 == 3) {
    dib.resize(static_cast<std::size_t>(in_.u8()) % dib.size());
    if (dib.empty()) dib.resize(1);
    bad = true;
  }
  std::uint8_t* const block = global ? keep_global(dib) : keep(dib);
  std::int32_t next = 0;
  while (validate_image_handle(ImageHandle{next}).ok()) ++next;
  const std::int64_t result =
      call([&] { return IMG_create_handle_keep(kind == 254 ? nullptr : block); });
  if (kind == 254) {
    TQ_CLAIM(result == IMG_BAD_IMAGE);
    return;
  }
  expect(result, {IMG_BAD_IMAGE});
  if (result == IMG_OUT_OF_MEMORY) return;
  TQ_CLAIM(bad == (result == IMG_BAD_IMAGE));
  if (bad) {
    ImageModel& model = add_image(next, {});  // stays allocated
    model.has_pixels = false;
    verify(model);
    return;
  }
  picture.normalise_mono_palette();
  verify(add_image(static_cast<std::int32_t>(result), picture));
}

void Session::create_device() {
  TQ_CLAIM(call([&] { return IMG_create_handle_ddb(this); }) == IMG_NO_DEVICE_BITMAP);
}

void Session::remove() {
  const std::int32_t handle = choose_handle();
  const bool leaves_block = in_.below(4) == 0;
  const std::intptr_t address = IMG_bitmap_info(handle, nullptr, nullptr, nullptr);
  const std::int64_t result = call(
      [&] { return leaves_block ? IMG_delete_bitmap_keep(handle) : IMG_delete_bitmap(handle); });
  if (find(handle) == nullptr && !nested()) TQ_CLAIM(result == IMG_BAD_HANDLE);
  if (find(handle) != nullptr) TQ_CLAIM(result == 0);
  if (result != 0) return;
  forget(handle);
  auto* const block = reinterpret_cast<std::uint8_t*>(address);
  if (leaves_block && platform::block_size(block) != 0) global_blocks_.push_back(block);
}

// ---- Decoding ---------------------------------------------------------------------------------

void Session::finish_decode(std::int64_t result, const Picture* expected) {
  expect(result, {IMG_UNSUPPORTED, IMG_BAD_IMAGE, IMG_NO_LZW_MODULE, IMG_CANNOT_OPEN,
                  IMG_BAD_HANDLE, IMG_OUT_OF_MEMORY});
  if (expected != nullptr) TQ_CLAIM(result >= 0 || may_lack_memory());
  if (result < 0) return;
  const auto handle = static_cast<std::int32_t>(result);
  ImageModel& model = add_image(handle, read_picture(handle));
  model.in_runs = shown_in_runs(handle);
  const std::int32_t index = IMGLOW_get_transp_color(handle);
  if (index >= 0) model.transparent = index;
  if (expected != nullptr) {
    TQ_CLAIM(model.picture == *expected);
    TQ_CLAIM(model.in_runs == (expected->bits == 1 && expected->width <= 65533));
  }
  verify(model);
}

void Session::decode() {
  if (images_.size() >= kMostImages) return;
  const std::uint8_t way = in_.u8();
  std::vector<std::uint8_t> file;
  // 16-bit and 1-bit files do not come back as they are.
  Picture expected;
  const bool known = way < 160;
  if (known) {
    expected = choose_picture();
    if (expected.bits == 1) expected.palette = {0, 0, 0, 0, 255, 255, 255, 0};
    file = bmp_file(expected);
  } else {
    file = choose_file();
  }
  const std::int32_t page = in_.below(3) == 0 ? in_.any_int() : 0;
  std::int64_t result = 0;
  bool offset = false;
  std::uint8_t* const block = way % 8 < 2 ? keep_global(file) : keep(file);
  switch (way % 8) {
    case 0:
      result = call([&] { return IMG_create_handle(block); });
      break;
    case 1:
      result = call([&] { return IMG_decompress_bitmap_mem(block, page); });
      break;
    case 2: {
      const std::string name = folder().path + "/in";
      write_file(name, file);
      result = call([&] { return IMG_decompress_bitmap(name.c_str()); });
      break;
    }
    case 3: {
      const int stored = memfd_create("in", MFD_CLOEXEC);
      TQ_CLAIM(write(stored, file.data(), file.size()) == static_cast<ssize_t>(file.size()));
      const std::int32_t start = in_.below(4) == 0 ? in_.any_int() : 0;
      offset = start != 0;
      result = call([&] { return IMG_decompress_bitmap_fd(stored, start, page); });
      close(stored);
      break;
    }
    case 4: {
      constexpr const char* kNames[] = {nullptr, "", "/", "/dev/shm/no-such-file-here"};
      const char* const name = kNames[in_.below(4)];
      result = call([&] { return IMG_decompress_bitmap(name); });
      if (!nested()) TQ_CLAIM(result == IMG_CANNOT_OPEN);
      return;
    }
    case 5: {
      constexpr std::int32_t kStreams[] = {IMG_MEMORY_STREAM, -1, 1000000};
      const std::int32_t stream = kStreams[in_.below(3)];
      const std::int32_t start = in_.any_int();
      result = call([&] { return IMG_decompress_bitmap_fd(stream, start, page); });
      offset = true;
      break;
    }
    default:
      result = call([&] { return IMG_decompress_bitmap_block(block, file.size(), page); });
      break;
  }
  const bool predictable = known && !offset && undisturbed() && plain_io() && plain_decoding() &&
                           !bmp_switched_off_ && !one_of(expected.bits, {2, 16});
  const bool aborted = result == kAborted;
  finish_decode(result, predictable && !aborted ? &expected : nullptr);
}

void Session::decode_to_sink() {
  const std::vector<std::uint8_t> file = choose_file();
  std::uint8_t* const block = keep(file);
  std::uint8_t* const global_block = keep_global(file);
  const int way = in_.below(3);
  const std::int32_t offset = in_.i8();
  sink_rows_ = 0;
  const std::int64_t result = call([&] {
    if (way == 0) {
      return IMGLOW_decompress_bitmap_block(block, file.size(), 0, on_row, this, on_header);
    }
    if (way == 1) {
      return IMGLOW_decompress_bitmap_mem(global_block, 1, on_row, this, nullptr);
    }
    return IMGLOW_decompress_bitmap(IMG_MEMORY_STREAM, offset, 0, nullptr, this, on_header);
  });
  TQ_CLAIM(result <= 0);
  expect(result, {IMG_UNSUPPORTED, IMG_BAD_IMAGE, IMG_NO_LZW_MODULE, IMG_OUT_OF_MEMORY, kAborted});
}

// ---- Queries and values of an image -----------------------------------------------------------

void Session::query_image() {
  const std::int32_t handle = choose_handle();
  const ImageModel* const model = find(handle);
  std::int32_t width = -5, height = -5, bits = -5;
  const std::intptr_t address = static_cast<std::intptr_t>(
      call([&] { return IMG_bitmap_info(handle, &width, &height, &bits); }));
  const ExactBytes header(model == nullptr || !model->has_pixels
                              ? std::size_t{IMG_HEADER_BLOCK_BYTES}
                              : 40 + model->picture.palette_bytes());
  const std::int32_t copied = IMGLOW_get_bitmap_header(handle, header.data());
  TQ_CLAIM(IMGLOW_get_bitmap_header(handle, nullptr) == copied);
  if (model == nullptr) {
    if (!nested()) TQ_CLAIM(address == IMG_BAD_HANDLE && copied == IMG_BAD_HANDLE && width == -5);
    return;
  }
  if (!model->has_pixels) {
    TQ_CLAIM(address == IMG_OUT_OF_MEMORY && copied == IMG_OUT_OF_MEMORY && width == -5);
    return;
  }
  const Picture& picture = model->picture;
  TQ_CLAIM(copied == 0 && width == picture.width && height == picture.height &&
           bits == picture.bits);
  TQ_CLAIM(std::memcmp(reinterpret_cast<const void*>(address), header.data(), header.size()) == 0);
}

void Session::set_crop() {
  const std::int32_t handle = choose_handle();
  const std::int32_t x = in_.any_int(), y = in_.any_int();
  const std::int32_t width = in_.any_int(), height = in_.any_int();
  const std::int64_t result = call([&] { return IMG_set_croprect(handle, x, y, width, height); });
  ImageModel* const model = find(handle);
  if (model == nullptr) {
    if (!nested()) TQ_CLAIM(result == IMG_BAD_HANDLE);
    return;
  }
  TQ_CLAIM(result == 0);
  TQ_CLAIM(IMG_get_croprect(handle, nullptr, nullptr, nullptr, nullptr) == 0);
  const auto clamp = [](std::int64_t from, std::int64_t side, std::int64_t whole) {
    const std::int64_t first = from >= 0 && from < whole ? from : 0;
    const std::int64_t length = std::max<std::int64_t>(side, 1);
    return std::pair(
        static_cast<std::int32_t>(first),
        static_cast<std::int32_t>(first + length < whole ? length : whole - first - 1));
  };
  std::tie(model->crop.x, model->crop.width) = clamp(x, width, model->picture.width);
  std::tie(model->crop.y, model->crop.height) = clamp(y, height, model->picture.height);
  verify(*model);
}

void Session::set_display_values() {
  const std::int32_t handle = choose_handle();
  const std::int32_t value = in_.any_int();
  const bool known = find(handle) != nullptr;
  const auto check = [&](std::int64_t result) {
    if (known) TQ_CLAIM(result == 0);
    if (!known && !nested()) TQ_CLAIM(result == IMG_BAD_HANDLE);
  };
  check(call([&] { return IMG_set_gamma(handle, value); }));
  check(IMGLOW_set_rop(handle, value));
  check(IMGLOW_get_display_rect(handle, nullptr, nullptr, nullptr, nullptr));
  const std::int32_t turned = IMG_set_display_angle(handle, value);
  if (known) TQ_CLAIM(turned == (one_of(value, {0, 90, 180, 270}) ? 0 : IMG_UNSUPPORTED));
}

void Session::set_transparent() {
  const std::int32_t handle = choose_handle();
  const std::int32_t index = in_.any_int();
  const std::int64_t result = call([&] { return IMGLOW_set_transp_color(handle, index); });
  ImageModel* const model = find(handle);
  if (model == nullptr) {
    if (!nested()) TQ_CLAIM(result == IMG_BAD_HANDLE);
    return;
  }
  TQ_CLAIM(result == 0);
  model->transparent = index;
  verify(*model);
}

// ---- Pixels and palettes ----------------------------------------------------------------------

void Session::get_raster() {
  const std::int32_t handle = choose_handle();
  const std::int32_t row = in_.any_int(), bytes = in_.any_int();
  const ImageModel* const model = find(handle);
  if (model == nullptr && nested()) return;  // nobody knows how large a row is
  const std::size_t room = model == nullptr || !model->has_pixels ? 0 : model->picture.row_bytes();
  const ExactBytes out(room);
  std::fill_n(out.data(), room, std::uint8_t{0x3C});
  const bool null = in_.u8() == 0xFF;
  const std::int64_t result =
      call([&] { return IMGLOW_get_raster(handle, null ? nullptr : out.data(), row, bytes); });
  if (model == nullptr) {
    TQ_CLAIM(result == IMG_BAD_HANDLE);
    return;
  }
  if (!model->has_pixels) {
    TQ_CLAIM(result == IMG_OUT_OF_MEMORY);
    return;
  }
  const bool legal = !null && row >= 0 && row < model->picture.height && bytes >= 0;
  TQ_CLAIM(result == (legal ? 0 : IMG_UNSUPPORTED) ||
           (result == IMG_OUT_OF_MEMORY && may_lack_memory()));
  const std::size_t count = result != 0  ? 0
                            : bytes == 0 ? room
                                         : std::min(room, static_cast<std::size_t>(bytes));
  for (std::size_t i = count; i < room; ++i) TQ_CLAIM(out.data()[i] == 0x3C);
  // Padding is not the model's.
  const auto pixels = static_cast<std::size_t>(std::int64_t{model->picture.width} *
                                               std::min(model->picture.bits, 8) / 8);
  if (count != 0 && model->picture.bits != 2) {
    TQ_CLAIM(std::equal(out.data(), out.data() + std::min(count, pixels), model->picture.row(row)));
  }
}

void Session::put_raster() {
  const std::int32_t handle = choose_handle();
  const std::int32_t row = in_.any_int(), bytes = in_.any_int();
  ImageModel* const model = find(handle);
  if (model == nullptr && nested()) return;
  const std::size_t room = model == nullptr || !model->has_pixels ? 0 : model->picture.row_bytes();
  const Picture source = make_picture(static_cast<std::int32_t>(room), 1, 8, in_.u8());
  const ExactBytes content(Bytes(source.rows).first(room));
  const std::int64_t result =
      call([&] { return IMGLOW_put_raster(handle, content.data(), row, bytes); });
  if (model == nullptr) {
    TQ_CLAIM(result == IMG_BAD_HANDLE);
    return;
  }
  const bool legal = row >= 0 && row < model->picture.height && bytes >= 0;
  if (!model->has_pixels) {
    TQ_CLAIM(result == IMG_OUT_OF_MEMORY);
  } else if (result == 0) {
    TQ_CLAIM(legal);
    const std::size_t count = bytes == 0 ? room : std::min(room, static_cast<std::size_t>(bytes));
    std::copy_n(content.data(), count, model->picture.row(row));
    model->picture.clear_padding();
  } else {
    TQ_CLAIM((!legal && result == IMG_UNSUPPORTED) ||
             (result == IMG_OUT_OF_MEMORY && may_lack_memory()));
  }
  verify(*model);
}

void Session::move_palette() {
  const std::int32_t handle = choose_handle();
  ImageModel* const model = find(handle);
  if (model == nullptr) {
    if (nested()) return;
    TQ_CLAIM(IMGLOW_get_palette(handle, nullptr) == IMG_BAD_HANDLE);
    TQ_CLAIM(IMGLOW_put_palette(handle, nullptr) == IMG_BAD_HANDLE);
    TQ_CLAIM(IMG_bitmap_palette(handle) == IMG_BAD_HANDLE);
    TQ_CLAIM(IMG_get_bitmap_palette(handle, nullptr) == IMG_BAD_HANDLE);
    return;
  }
  if (!model->has_pixels) {
    TQ_CLAIM(IMG_get_bitmap_palette(handle, nullptr) == IMG_OUT_OF_MEMORY);
    TQ_CLAIM(IMGLOW_put_palette(handle, nullptr) == IMG_OUT_OF_MEMORY);
    return;
  }
  std::vector<std::uint8_t>& palette = model->picture.palette;
  const auto entries = static_cast<std::int32_t>(palette.size() / 4);
  for (std::uint8_t& byte : palette) byte = in_.u8();
  const ExactBytes content{Bytes(palette)};
  TQ_CLAIM(call([&] { return IMGLOW_put_palette(handle, content.data()); }) == 0);
  const ExactBytes back(palette.size());
  TQ_CLAIM(call([&] { return IMG_get_bitmap_palette(handle, back.data()); }) == entries);
  TQ_CLAIM(std::equal(palette.begin(), palette.end(), back.data()));
  TQ_CLAIM(IMG_bitmap_palette(handle) == entries);
}

void Session::change_form() {
  const std::int32_t handle = choose_handle();
  const bool to_runs = in_.below(2) == 0;
  const std::int64_t result =
      call([&] { return to_runs ? IMG_dib_to_runs(handle) : IMG_runs_to_dib(handle); });
  ImageModel* const model = find(handle);
  if (model == nullptr) {
    if (!nested()) TQ_CLAIM(result == IMG_BAD_HANDLE);
    return;
  }
  if (!model->has_pixels) {
    TQ_CLAIM(result == IMG_OUT_OF_MEMORY);
    return;
  }
  const bool possible = !to_runs || model->picture.bits == 1;
  TQ_CLAIM(result == (possible ? 0 : IMG_WRONG_DEPTH) ||
           (result == IMG_OUT_OF_MEMORY && may_lack_memory()));
  if (result == 0) model->in_runs = to_runs && model->picture.width <= 65533;
  verify(*model);
}

// ---- Settings ---------------------------------------------------------------------------------

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

// ---- What a file is ---------------------------------------------------------------------------

void Session::query_file() {
  const std::vector<std::uint8_t> file = choose_file();
  std::uint8_t* const block = keep(file);
  std::uint8_t* const global_block = keep_global(file);
  const std::int64_t type = call([&] { return IMGLOW_get_filetype_block(block, file.size()); });
  expect(type, {IMG_UNSUPPORTED, IMG_BAD_IMAGE});
  const std::int64_t pages = call([&] { return IMGLOW_get_pages_mem(global_block); });
  expect(pages, {IMG_UNSUPPORTED, IMG_NO_LZW_MODULE});
  TQ_CLAIM(pages != 0);
  const std::string name = folder().path + "/in";
  write_file(name, file);
  expect(call([&] { return IMGLOW_get_filetype(name.c_str()); }), {IMG_UNSUPPORTED, IMG_BAD_IMAGE});
  expect(call([&] { return IMGLOW_get_pages(name.c_str()); }),
         {IMG_UNSUPPORTED, IMG_NO_LZW_MODULE});
  for (const std::int32_t stream : {IMG_MEMORY_STREAM, -1}) {
    expect(call([&] { return IMGLOW_get_filetype_fd(stream); }), {IMG_UNSUPPORTED, IMG_BAD_IMAGE});
    expect(call([&] { return IMGLOW_get_pages_fd(stream); }), {IMG_UNSUPPORTED, IMG_NO_LZW_MODULE});
  }
  TQ_CLAIM(IMGLOW_get_filetype(nullptr) == IMG_CANNOT_OPEN);
  TQ_CLAIM(IMGLOW_get_pages(nullptr) == IMG_CANNOT_OPEN);
  TQ_CLAIM(IMGLOW_get_filetype_mem(nullptr) == IMG_UNSUPPORTED);
  TQ_CLAIM(IMGLOW_get_pages_block(nullptr, 5) == IMG_UNSUPPORTED);
}

// ---- Saving -----------------------------------------------------------------------------------

constexpr std::int32_t kCodes[] = {IMG_TYPE_BMP, IMG_TYPE_DIB, IMG_TYPE_BMP_RLE,
                                   IMG_TYPE_GIF, IMG_TYPE_PDF, IMG_TYPE_BY_NAME,
                                   66,           100000};

// Whatever a save may answer; `model` may be null.
constexpr std::initializer_list<std::int64_t> kSaveCodes = {
    IMG_BAD_HANDLE,   IMG_UNSUPPORTED,   IMG_BAD_IMAGE,     IMG_WRONG_DEPTH,
    IMG_WRITE_FAILED, IMG_NO_LZW_MODULE, IMG_OUT_OF_MEMORY, IMG_CANNOT_CREATE};

void Session::save_to_block() {
  const std::int32_t handle = choose_handle();
  const std::int32_t code = kCodes[in_.below(8)];
  const ImageModel* found = find(handle);
  const std::size_t needed = found == nullptr
                                 ? 200
                                 : 1200 + found->picture.rows.size() * 2 +
                                       8 * static_cast<std::size_t>(found->picture.height);
  const std::uint8_t kind = in_.u8();
  const std::size_t room = kind < 200 ? needed : needed * (kind - 200) / 60;
  const std::vector<std::uint8_t> empty(room, 0x77);
  const bool global = kind % 2 != 0;
  // Callbacks may open this block as a stream again.
  std::uint8_t* const block = global ? keep_global(empty) : keep(empty);
  const std::uint64_t serial = found == nullptr ? 0 : found->serial;
  const std::int64_t result = call([&] {
    return global ? IMG_save_bitmap_mem(handle, block, code)
                  : IMG_save_bitmap_block(handle, block, room, code);
  });
  expect(result, kSaveCodes);
  found = find(handle);
  if (!undisturbed() || found == nullptr || found->serial != serial) return;
  verify(*found);
  if (result < 0 || !plain_io()) return;
  TQ_CLAIM(one_of(code, {IMG_TYPE_BMP, IMG_TYPE_DIB, IMG_TYPE_BMP_RLE}));
  TQ_CLAIM(result <= static_cast<std::int64_t>(std::max<std::size_t>(room, 1)));
  const Bytes written(block, static_cast<std::size_t>(result));
  if (code == IMG_TYPE_DIB) check_saved(*found, written);
  if (code == IMG_TYPE_BMP) check_saved(*found, written.subspan(14));
  for (std::size_t i = written.size(); i < room; ++i) TQ_CLAIM(block[i] == 0x77);
}

void Session::save_to_stream() {
  const std::int32_t handle = choose_handle();
  const std::int32_t code = kCodes[in_.below(8)];
  const int file = memfd_create("out", MFD_CLOEXEC);
  const std::int32_t kStreams[] = {file, file, IMG_MEMORY_STREAM, -1};
  const std::int32_t stream = kStreams[in_.below(4)];
  const std::int64_t result = call([&] { return IMG_save_bitmap_fd(handle, stream, code); });
  expect(result, kSaveCodes);
  const ImageModel* const model = find(handle);
  if (undisturbed() && model != nullptr) {
    verify(*model);
    if (result >= 0 && plain_io() && stream == file && code == IMG_TYPE_DIB) {
      std::vector<std::uint8_t> content(static_cast<std::size_t>(lseek(file, 0, SEEK_END)));
      TQ_CLAIM(pread(file, content.data(), content.size(), 0) ==
               static_cast<ssize_t>(content.size()));
      check_saved(*model, content);
    }
  }
  close(file);
}

void Session::save_to_name() {
  constexpr const char* kNames[] = {"/out.bmp", "/OUT.BMP", "/out.gif",    "/out.pdf",
                                    "/out.imt", "/out",     "/none/x.bmp", "/"};
  const std::int32_t handle = choose_handle();
  const std::int32_t code = kCodes[in_.below(8)];
  const std::string name = folder().path + kNames[in_.below(8)];
  const std::vector<std::uint8_t> old = {'o', 'l', 'd'};
  const bool is_file = name.back() != '/' && name.find("none") == std::string::npos;
  if (is_file) write_file(name, old);
  const std::int64_t result = call([&] { return IMG_save_bitmap(handle, name.c_str(), code); });
  TQ_CLAIM(result <= 0);
  expect(result, kSaveCodes);
  const bool exists = access(name.c_str(), F_OK) == 0;
  const std::vector<std::uint8_t> now = exists && is_file ? file_content(name) : old;
  // A file is whole, or left alone, or gone.
  if (result < 0 && is_file && undisturbed()) TQ_CLAIM(!exists || now == old);
  if (one_of(result, {IMG_UNSUPPORTED, IMG_NO_LZW_MODULE, IMG_BAD_HANDLE, IMG_BAD_IMAGE}) &&
      undisturbed()) {
    TQ_CLAIM(!is_file || exists);
  }
  const ImageModel* const model = find(handle);
  if (model != nullptr && undisturbed()) {
    verify(*model);
    const bool by_name = code == IMG_TYPE_BY_NAME;
    if (result == 0 && plain_io() && (code == IMG_TYPE_BMP || by_name)) {
      check_saved(*model, Bytes(now).subspan(14));
    }
  }
  if (is_file) unlink(name.c_str());
}

void Session::save_rows() {
  const Picture picture = choose_picture();
  std::vector<std::uint8_t> header = header_bytes(picture);
  header.resize(IMG_HEADER_BLOCK_BYTES);
  const std::uint8_t kind = in_.u8();
  if (kind >= 200) {
    for (std::size_t at = 4; at < 16; ++at) header[at] = in_.u8();
  }
  ExactBytes block{Bytes(header)};
  const std::int32_t code = kCodes[in_.below(8)];
  sink_rows_ = 0;
  const std::vector<std::uint8_t> empty(in_.u16());
  std::uint8_t* const out = keep_global(empty);
  const std::int64_t result = call([&] {
    return kind % 3 == 0
               ? IMGLOW_save_bitmap(IMG_MEMORY_STREAM, block.data(), code, on_supply, this)
               : IMGLOW_save_bitmap_mem(out, block.data(), code,
                                        kind % 32 == 31 ? nullptr : on_supply, this);
  });
  if (result != kAborted) expect(result, kSaveCodes);
}

// ---- Callbacks --------------------------------------------------------------------------------

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
  return session->interfere(0);
}

std::int32_t IMG_CB_C Session::on_read(std::int32_t, void* buffer, std::int32_t count) {
  TQ_CLAIM(count > 0);
  std::memset(buffer, 0x99, static_cast<std::size_t>(count));  // all of it must be there
  if (session->interfere(0) < 0) return -5;
  auto& file = session->caller_;
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
  if (session->interfere(0) < 0) return 0;
  auto& file = session->caller_;
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
  if (session->interfere(0) < 0) return -5;
  auto& file = session->caller_;
  const std::int64_t from[] = {0, file.position, static_cast<std::int64_t>(file.content.size())};
  file.position = from[origin] + offset;
  return static_cast<std::int32_t>(file.position);
}

std::int32_t IMG_CB_C Session::on_header(void* header, void* context) {
  TQ_CLAIM(context == session);
  Digest all;
  all.add({static_cast<const std::uint8_t*>(header), IMG_HEADER_BLOCK_BYTES});
  return session->interfere(1);
}

std::int32_t IMG_CB_C Session::on_row(void* row, void* context, std::int32_t y,
                                      std::int32_t bytes) {
  TQ_CLAIM(context == session && y >= 0 && bytes > 0);
  Digest all;
  all.add({static_cast<const std::uint8_t*>(row), static_cast<std::size_t>(bytes)});
  return ++session->sink_rows_ > 500 ? kAborted : session->interfere(0);
}

std::int32_t IMG_CB_C Session::on_supply(void* context, void* dest, std::int32_t y,
                                         std::int32_t bytes) {
  TQ_CLAIM(context == session && y >= 0 && bytes > 0);
  std::memset(dest, y * 37, static_cast<std::size_t>(bytes));
  return ++session->sink_rows_ > 500 ? kAborted : session->interfere(0);
}

// ---- The sequence -----------------------------------------------------------------------------

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
  session = this;
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

}  // namespace
}  // namespace tq::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tq::fuzz::Session session({data, size});
  session.run();
  TQ_CLAIM(tq::memory_probe::live_blocks() == 0);
  return 0;
}
