// Calls on files and memory: decoding, saving, asking.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <filesystem>

#include "fuzz/sequence_session.h"

namespace tq::fuzz {

namespace {

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

}  // namespace

const std::string& folder() {
  static const Folder made;
  return made.path;
}

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

// ---- Decoding ----------------------------------------------------------------------------------

void Session::finish_decode(std::int64_t result, const Picture* expected) {
  expect(result, {IMG_NO_PDF_MODULE, IMG_NO_DEVICE_BITMAP, IMG_NO_SUCH_PAGE, IMG_READ_FAILED,
                  IMG_PAGE_PAST_END, IMG_UNSUPPORTED, IMG_BAD_IMAGE, IMG_NO_LZW_MODULE,
                  IMG_CANNOT_OPEN, IMG_BAD_HANDLE, IMG_OUT_OF_MEMORY});
  if (expected != nullptr) TQ_CLAIM(result >= 0 || may_lack_memory());
  if (result < 0) return;
  const auto handle = static_cast<std::int32_t>(result);
  ImageModel& model = add_image(handle, read_picture(handle));
  model.in_runs = shown_in_runs(handle);
  const std::int32_t index = IMGLOW_get_transp_color(handle);
  if (index >= 0) model.transparent = index;
  if (!undisturbed()) {
    // Callbacks may have cropped it while it was being made.
    Crop& crop = model.crop;
    TQ_CLAIM(IMG_get_croprect(handle, &crop.x, &crop.y, &crop.width, &crop.height) == 0);
  }
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
      const std::string name = folder() + "/in";
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
  expect(result, {IMG_NO_PDF_MODULE, IMG_NO_DEVICE_BITMAP, IMG_NO_SUCH_PAGE, IMG_READ_FAILED,
                  IMG_PAGE_PAST_END, IMG_UNSUPPORTED, IMG_BAD_IMAGE, IMG_NO_LZW_MODULE,
                  IMG_OUT_OF_MEMORY, kAborted});
}

// ---- What a file is ----------------------------------------------------------------------------

void Session::query_file() {
  const std::vector<std::uint8_t> file = choose_file();
  std::uint8_t* const block = keep(file);
  std::uint8_t* const global_block = keep_global(file);
  const std::int64_t type = call([&] { return IMGLOW_get_filetype_block(block, file.size()); });
  expect(type, {IMG_UNSUPPORTED, IMG_BAD_IMAGE});
  const std::int64_t pages = call([&] { return IMGLOW_get_pages_mem(global_block); });
  expect(pages, {IMG_UNSUPPORTED, IMG_NO_LZW_MODULE});
  TQ_CLAIM(pages != 0);
  const std::string name = folder() + "/in";
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

// ---- Saving ------------------------------------------------------------------------------------

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
  const std::int32_t streams[] = {file, file, IMG_MEMORY_STREAM, -1};
  const std::int32_t stream = streams[in_.below(4)];
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
  const std::string name = folder() + kNames[in_.below(8)];
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
  // Refused before it was opened. Encoders refuse depths later, and a caller's functions may show
  // them another file than they showed before.
  const bool refused_first = one_of(result, {IMG_NO_LZW_MODULE, IMG_BAD_HANDLE}) ||
                             one_of(code, {66, 100000}) || (result == IMG_BAD_IMAGE && plain_io());
  if (refused_first && undisturbed()) {
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

}  // namespace tq::fuzz
