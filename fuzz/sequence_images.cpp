// Calls on images: made, deleted, asked, changed.
#include <tuple>

#include "core/image_table.h"
#include "fuzz/sequence_session.h"
#include "platform/memory.h"

namespace tq::fuzz {

// ---- Creating and deleting ---------------------------------------------------------------------

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

// ---- Queries and values ------------------------------------------------------------------------

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

// ---- Pixels and palettes -----------------------------------------------------------------------

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
             (result == IMG_OUT_OF_MEMORY && may_lack_memory(*model)));
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
           (result == IMG_OUT_OF_MEMORY && may_lack_memory(*model)));
  if (result == 0) model->in_runs = to_runs && model->picture.width <= 65533;
  verify(*model);
}

}  // namespace tq::fuzz
