// Frames over frames. The image may be changed or deleted by whoever is called back while a frame is
// decoded, so it is looked up for every row, and an animation that is at work outlives it until then.
#include "dispatch/animation.h"

#include <algorithm>
#include <new>

#include "core/context.h"
#include "core/image_create.h"
#include "formats/codec.h"
#include "formats/gif/gif.h"
#include "formats/plugin/plugin.h"
#include "io/byte_stream.h"
#include "pixels/rows.h"

namespace tq::dispatch {
namespace {

using gif::FramePlace;

constexpr int kPixel = 4;  // bytes: blue, green, red, 0

// What a file says in hundredths of a second, as viewers take it, in milliseconds.
std::int32_t waiting(int delay) {
  return delay < 2 ? 100 : 10 * delay;
}

Status seek_to_frames(StreamHandle stream) {
  return seek(stream, 0, Origin::start) < 0 ? StatusCode::read_failed : StatusCode::ok;
}

struct Animation {
  OpenFile file;
  ImageHandle canvas{-1};
  std::uint64_t serial = 0;
  FramePlace place;                // of the frame that was drawn last
  std::int32_t frame = 0;          // its number
  std::int32_t loop = 0;           // how often the last frame has been drawn
  std::uint8_t* before = nullptr;  // pixels that the next frame brings back, or null
  bool failed = false;
  bool at_work = false, deleted = false;
};

void free_animation(Animation* animation) {
  free_block(animation->before);
  animation->~Animation();
  free_block(animation);
}

void end_animation(void* given) {
  auto* const animation = static_cast<Animation*>(given);
  animation->deleted = true;
  if (!animation->at_work) free_animation(animation);
}

// While frames are decoded.
class AtWork {
 public:
  explicit AtWork(Animation& animation) : animation_(animation) { animation_.at_work = true; }
  ~AtWork() {
    animation_.at_work = false;
    if (animation_.deleted) free_animation(&animation_);
  }
  AtWork(const AtWork&) = delete;
  AtWork& operator=(const AtWork&) = delete;

 private:
  Animation& animation_;
};

// Null when the image is gone or is not what frames are drawn on.
ImageRecord* canvas_of(const Animation& animation) {
  ImageRecord* const image = find_image(animation.canvas, animation.serial);
  const bool fits = image != nullptr && image->dib != nullptr && image->bits == 32 &&
                    image->width == animation.place.screen_width &&
                    image->height == animation.place.screen_height;
  return fits ? image : nullptr;
}

// What is on the canvas of a frame's rectangle.
Rect part_on_canvas(const FramePlace& place) {
  const std::int32_t width = std::min(place.width, place.screen_width - place.left);
  const std::int32_t height = std::min(place.height, place.screen_height - place.top);
  return {place.left, place.top, std::max(width, 0), std::max(height, 0)};
}

std::size_t pixel_bytes(const ImageRecord& image) {
  return std::size_t(image.bytes_per_row) * image.height;
}

class FrameRows {
 public:
  FrameRows(const Animation& animation, const FramePlace& place)
      : animation_(animation), part_(part_on_canvas(place)) {}

  formats::RowSink sink() { return {take_header, take_row, this, nullptr}; }

 private:
  static std::int32_t IMG_CB_C take_header(void* block, void* self) {
    static_cast<FrameRows*>(self)->header_ = *static_cast<const HeaderBlock*>(block);
    return 1;
  }
  static std::int32_t IMG_CB_C take_row(void* row, void* self, std::int32_t y, std::int32_t bytes) {
    const std::span stored(static_cast<const std::uint8_t*>(row), bytes);
    return static_cast<FrameRows*>(self)->row(stored, y).raw();
  }

  Status row(std::span<const std::uint8_t> stored, std::int32_t y) {
    ImageRecord* const image = canvas_of(animation_);
    if (image == nullptr) return StatusCode::bad_handle;
    const BitmapInfoHeader& header = header_.header;
    const std::int32_t width = std::min(part_.width, header.biWidth);
    const bool whole = std::ssize(stored) >= row_bytes(header.biWidth, header.biBitCount);
    if (y < 0 || y >= part_.height || width < 1 || !whole) return kOk;
    const int transparent = (header.biClrUsed & kTransparent) != 0 ? header.biClrUsed & 0xFF : -1;
    std::uint8_t* const out =
        plain_row(*image, part_.y + y).data() + std::ptrdiff_t{kPixel} * part_.x;
    pixels::for_each_index(stored.data(), header.biBitCount, width, [&](int x, int index) {
      if (index == transparent) return;
      const Rgb colour = header_.palette[index];
      const std::uint8_t pixel[kPixel] = {colour.blue, colour.green, colour.red, 0};
      std::memcpy(out + std::ptrdiff_t{kPixel} * x, pixel, kPixel);
    });
    return kOk;
  }

  const Animation& animation_;
  Rect part_;
  HeaderBlock header_;
};

void whiten(ImageRecord& image, const Rect& part) {
  for (std::int32_t y = part.y; y < part.y + part.height; ++y) {
    std::uint8_t* pixel = plain_row(image, y).data() + std::ptrdiff_t{kPixel} * part.x;
    for (std::int32_t x = 0; x < part.width; ++x, pixel += kPixel) {
      const std::uint8_t white[kPixel] = {255, 255, 255, 0};
      std::memcpy(pixel, white, kPixel);
    }
  }
}

// What was drawn last makes room for the next frame.
void dispose(Animation& animation, ImageRecord& image) {
  if (animation.place.disposal == 2) whiten(image, part_on_canvas(animation.place));
  if (animation.place.disposal == 3 && animation.before != nullptr) {
    std::memcpy(pixels_of(image), animation.before, pixel_bytes(image));
  }
  free_block(animation.before);
  animation.before = nullptr;
}

Status draw_frame(Animation& animation, std::int32_t frame, const FramePlace& place) {
  ImageRecord& image = *canvas_of(animation);
  std::uint8_t* before = nullptr;
  if (place.disposal == 3) {
    before = alloc_block(pixel_bytes(image));
    if (before == nullptr) return StatusCode::out_of_memory;
  }
  release_display_cache(image);
  if (frame == 0) {
    whiten(image, {0, 0, image.width, image.height});
    free_block(animation.before);
  } else {
    dispose(animation, image);
  }
  animation.before = before;
  if (before != nullptr) std::memcpy(before, pixels_of(image), pixel_bytes(image));
  animation.place = place;
  animation.frame = frame;
  FrameRows rows(animation, place);
  TQ_TRY(seek_to_frames(animation.file.handle()));
  formats::DecodeRequest request{.stream = animation.file.handle(), .sink = rows.sink()};
  request.page = frame;
  const Status drawn = plugin::decode_gif(request);
  if (canvas_of(animation) == nullptr) return StatusCode::bad_handle;
  return drawn.failed() ? drawn : kOk;
}

Status create_canvas(ImageSlot& slot, const FramePlace& place) {
  TQ_TRY(slot.allocate());
  HeaderBlock header = dib_header(place.screen_width, place.screen_height, 32);
  header.header.biCompression = kRgb32;
  return create_shell(slot.record(), &header);
}

}  // namespace

Status open_animation(const char* name) {
  std::uint8_t* const block = alloc_block(sizeof(Animation));
  if (block == nullptr) return StatusCode::out_of_memory;
  auto* const animation = new (block) Animation;
  animation->deleted = true;  // unless an image has it
  const AtWork at_work(*animation);
  TQ_TRY(animation->file.open(name, OpenMode::read));
  FramePlace place;
  TQ_TRY(gif::find_place(animation->file.handle(), 0, place));
  ImageSlot slot;
  TQ_TRY(create_canvas(slot, place));
  animation->canvas = slot.handle();
  animation->serial = slot.record().serial;
  animation->place = place;
  slot.record().animation = animation;
  slot.record().end_animation = end_animation;
  animation->deleted = false;
  TQ_TRY(draw_frame(*animation, 0, place));
  return slot.keep();
}

Status next_frame(ImageHandle canvas, FrameTime& time) {
  auto* const animation = static_cast<Animation*>(image_record(canvas).animation);
  if (animation == nullptr || animation->failed || animation->at_work) {
    return StatusCode::unsupported;
  }
  if (canvas_of(*animation) == nullptr) return StatusCode::unsupported;
  const AtWork at_work(*animation);
  const StreamHandle file = animation->file.handle();
  FramePlace place;
  std::int32_t frame = animation->frame + 1;
  TQ_TRY(seek_to_frames(file));
  Status found = gif::find_place(file, frame, place);
  if (found == StatusCode::page_past_end) {
    time = {waiting(animation->place.delay), animation->frame};
    const int loops = animation->place.loops;
    // 0 is for ever; nothing said is once.
    const bool ends = loops != 0 && animation->loop >= std::max(loops, 0);
    if (ends || animation->frame == 0) return Status::from_raw(0);
    ++animation->loop;
    frame = 0;
    TQ_TRY(seek_to_frames(file));
    found = gif::find_place(file, 0, place);
  }
  if (found.ok()) found = draw_frame(*animation, frame, place);
  if (found == StatusCode::out_of_memory) return found;
  animation->failed = found.failed();
  TQ_TRY(found);
  time = {waiting(place.delay), frame};
  return Status::from_raw(1);
}

Status frame_delay(const char* name, std::int32_t frame) {
  if (frame < 0) return StatusCode::page_past_end;
  OpenFile file;
  TQ_TRY(file.open(name, OpenMode::read));
  FramePlace place;
  TQ_TRY(gif::find_place(file.handle(), frame, place));
  if (place.delay < 0) return StatusCode::no_animation_delay;
  return Status::from_raw(10 * place.delay);
}

}  // namespace tq::dispatch
