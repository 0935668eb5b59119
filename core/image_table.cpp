// The image table: one block of record pointers while at least one image exists.
#include "core/image_table.h"

#include <algorithm>
#include <new>
#include <span>

#include "core/context.h"
#include "core/image_record.h"

namespace tq {
namespace {

ImageTable& table() {
  return context().images;
}

ImageRecord*& entry(ImageHandle handle) {
  return table().records[static_cast<std::int32_t>(handle)];
}

bool names_image(ImageHandle handle) {
  const auto index = static_cast<std::int32_t>(handle);
  return index >= 0 && index < table().in_use && table().records[index] != nullptr;
}

// Only the entries in use are looked at, so none is cleared.
Status allocate_table() {
  std::uint8_t* block = alloc_block(kMostImages * sizeof(ImageRecord*));
  if (block == nullptr) return StatusCode::out_of_memory;
  table().records = reinterpret_cast<ImageRecord**>(block);
  return kOk;
}

// Gives trailing free entries back, and the table with the last image.
void trim_table() {
  while (table().in_use > 0 && table().records[table().in_use - 1] == nullptr) --table().in_use;
  if (table().in_use > 0) return;
  free_block(table().records);
  table().records = nullptr;
}

void free_record(ImageHandle handle) {
  ImageRecord& image = *entry(handle);
  release_display_cache(image);
  if (image.animation != nullptr) image.end_animation(image.animation);
  if (image.caller_owned) --table().adopted;
  free_block(image.run_table);
  free_block(&image);
  entry(handle) = nullptr;
  table().first_free = std::min(table().first_free, static_cast<std::int32_t>(handle));
  trim_table();
}

// Another image over the same pixels: a caller may register those of an image that exists.
ImageRecord* sharer_of(const ImageRecord& image) {
  if (table().adopted == 0) return nullptr;
  for (ImageRecord* other : std::span(table().records, table().in_use)) {
    if (other != nullptr && other != &image && other->dib == image.dib) return other;
  }
  return nullptr;
}

// Shared pixels go with the last image: what the library owns passes on to the next one.
void free_pixels(const ImageRecord& image) {
  ImageRecord* heir = sharer_of(image);
  if (heir == nullptr) {
    free_block(image.dib);
  } else if (heir->caller_owned && !image.caller_owned) {
    heir->caller_owned = false;
    --table().adopted;
  }
}

}  // namespace

Status allocate_image_slot() {
  if (table().records == nullptr) TQ_TRY(allocate_table());
  std::int32_t& index = table().first_free;
  while (index < table().in_use && table().records[index] != nullptr) ++index;
  std::uint8_t* block = index < kMostImages ? alloc_block(sizeof(ImageRecord)) : nullptr;
  if (block == nullptr) {
    trim_table();
    return StatusCode::out_of_memory;
  }
  table().records[index] = new (block) ImageRecord;
  table().records[index]->serial = table().next_serial++;
  if (index == table().in_use) ++table().in_use;
  return Status::from_raw(index);
}

Status validate_image_handle(ImageHandle handle) {
  return names_image(handle) ? kOk : Status(StatusCode::bad_handle);
}

Status free_image_slot(ImageHandle handle) {
  TQ_TRY(validate_image_handle(handle));
  free_pixels(*entry(handle));
  free_record(handle);
  return kOk;
}

Status free_image_slot_keep(ImageHandle handle) {
  TQ_TRY(validate_image_handle(handle));
  free_record(handle);
  return kOk;
}

ImageRecord& image_record(ImageHandle handle) {
  return *entry(handle);
}

ImageRecord* find_image(ImageHandle handle, std::uint64_t serial) {
  if (!names_image(handle) || entry(handle)->serial != serial) return nullptr;
  return entry(handle);
}

void adopt_block(ImageRecord& image, std::uint8_t* dib) {
  image.dib = dib;
  image.caller_owned = true;
  ++table().adopted;
}

void replace_dib(ImageRecord& image, std::uint8_t* dib) {
  if (image.caller_owned) {
    --table().adopted;
  } else {
    free_pixels(image);
  }
  free_block(image.run_table);
  image.dib = dib;
  image.caller_owned = false;
  image.in_runs = false;
  image.run_table = nullptr;
  image.runs_end = image.runs_dead = image.waiting_end = 0;
}

ImageSlot::~ImageSlot() {
  if (still_there()) (void)free_image_slot(handle_);
}

Status ImageSlot::allocate() {
  const Status slot = allocate_image_slot();
  TQ_TRY(slot);
  handle_ = ImageHandle{slot.raw()};
  serial_ = record().serial;
  return kOk;
}

Status ImageSlot::keep() {
  if (!still_there()) return StatusCode::bad_handle;
  serial_ = 0;
  return Status::from_raw(static_cast<std::int32_t>(handle_));
}

}  // namespace tq
