// The library's own row sink: makes the image from a decoder's header and stores its rows, reduced,
// scaled or cut on the way as the settings say.
#pragma once

#include "core/image_create.h"
#include "core/image_record.h"
#include "formats/codec.h"
#include "pixels/reduction.h"

namespace tq::dispatch {

// Which rows have been stored, so that only the others need clearing: a new block's rows hold
// whatever was in memory.
class DeliveredRows {
 public:
  void start(bool all_clear) {
    first_ = last_ = 0;
    all_clear_ = all_clear;
  }
  void add(ImageRecord& image, std::int32_t y);  // before the row is stored
  void clear_others(ImageRecord& image);

 private:
  std::int32_t first_ = 0, last_ = 0;  // rows first_ .. last_ - 1 have been stored
  bool all_clear_ = false;             // the others are clear
};

class ImageSink {
 public:
  // Pictures that are to be turned afterwards are taken as they are: whole, with all their bits.
  ImageSink(ImageHandle handle, const ImageRecord& image,
            const formats::DecodeNotes* turned = nullptr)
      : handle_(handle), serial_(image.serial), turned_(turned) {}
  ImageSink(const ImageSink&) = delete;
  ImageSink& operator=(const ImageSink&) = delete;

  formats::RowSink callbacks() { return {on_header, on_row, this, nullptr, &wanted_}; }

  // After a decode that succeeded: clears what was not delivered. bad_image when there was no
  // header.
  Status finish();
  bool is_to_be_turned() const { return turned_ != nullptr && turned_->orientation > 1; }

 private:
  enum class Fit { whole, scaled, cut };

  static std::int32_t IMG_CB_C on_header(void* block, void* sink);
  static std::int32_t IMG_CB_C on_row(void* row, void* sink, std::int32_t y, std::int32_t bytes);

  Status header(const HeaderBlock& block);
  Status row(std::span<const std::uint8_t> bytes, std::int32_t y);

  ImageRecord* image() const;
  ImageShape choose_shape();
  void choose_wanted();
  Status allocate_buffers(const ImageShape& shape);
  bool place_row(std::int32_t& y);
  std::span<const std::uint8_t> whole_row(std::span<const std::uint8_t> bytes);
  std::span<const std::uint8_t> fit_row(std::span<const std::uint8_t> row);
  void clear_undelivered(ImageRecord& image);
  Status store(ImageRecord& image, std::span<const std::uint8_t> bytes, std::int32_t y);

  ImageHandle handle_;
  std::uint64_t serial_;
  const formats::DecodeNotes* turned_;

  HeaderBlock source_;          // as the decoder delivers it
  std::size_t source_row_ = 0;  // bytes of a row of pixels from the decoder
  Fit fit_ = Fit::whole;
  std::int32_t left_ = 0, top_ = 0;  // of the decode rectangle, in source pixels
  std::int32_t last_scaled_row_ = -1;
  formats::WantedPart wanted_;
  pixels::RowReducer reducer_;
  bool has_header_ = false;
  std::int32_t width_ = 0, height_ = 0, bits_ = 0;  // of the image that was made
  DeliveredRows delivered_;

  RowBuffer<std::uint8_t> whole_;         // a row from the decoder, padded to its full size
  RowBuffer<std::uint8_t> fitted_;        // a row of the image
  RowBuffer<std::uint16_t> transitions_;  // of a run list from the decoder
};

}  // namespace tq::dispatch
