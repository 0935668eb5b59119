// HEIF and AVIF by libheif, turned and cut as the file says.
#include <libheif/heif.h>

#include <algorithm>
#include <string_view>

#include "modules/ext/decoders.h"

namespace tq::ext {
namespace {

constexpr int kLargestSide = 32768;
constexpr int kMostPictures = 4096;

class Heif {
 public:
  Heif() = default;
  Heif(const Heif&) = delete;
  Heif& operator=(const Heif&) = delete;
  ~Heif() {
    if (image_ != nullptr) heif_image_release(image_);
    if (handle_ != nullptr) heif_image_handle_release(handle_);
    if (context_ != nullptr) heif_context_free(context_);
  }

  Status open(Bytes file) {
    context_ = heif_context_alloc();
    if (context_ == nullptr) return StatusCode::out_of_memory;
    heif_context_set_maximum_image_size_limit(context_, kLargestSide);
    const heif_error read =
        heif_context_read_from_memory_without_copy(context_, file.data(), file.size(), nullptr);
    return status_of(read);
  }
  int pictures() const { return heif_context_get_number_of_top_level_images(context_); }

  // The primary one is the first.
  Status choose(std::int32_t page) {
    RowBuffer<heif_item_id> ids;
    const int count = std::min(pictures(), kMostPictures);
    if (page >= count) return count > 0 ? StatusCode::page_past_end : StatusCode::bad_image;
    TQ_TRY(ids.allocate(count));
    const int found = heif_context_get_list_of_top_level_image_IDs(context_, ids.data(), count);
    heif_item_id primary = 0;
    const auto there = ids.pixels().first(static_cast<std::size_t>(std::clamp(found, 0, count)));
    if (status_of(heif_context_get_primary_image_ID(context_, &primary)).ok()) {
      std::stable_partition(there.begin(), there.end(),
                            [=](heif_item_id id) { return id == primary; });
    }
    if (page >= std::ssize(there)) return StatusCode::page_past_end;
    return status_of(heif_context_get_image_handle(context_, ids[page], &handle_));
  }

  Status decode(const formats::RowSink& sink) {
    const int width = heif_image_handle_get_width(handle_);
    const int height = heif_image_handle_get_height(handle_);
    const bool has_alpha = heif_image_handle_has_alpha_channel(handle_) != 0;
    const bool is_mixed = has_alpha && heif_image_handle_is_premultiplied_alpha(handle_) != 0;
    ColourRows rows;
    TQ_TRY(rows.begin(width, height, sink));
    heif_decoding_options* const options = heif_decoding_options_alloc();
    if (options == nullptr) return StatusCode::out_of_memory;
    options->convert_hdr_to_8bit = 1;
    const heif_error decoded = heif_decode_image(
        handle_, &image_, heif_colorspace_RGB,
        has_alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB, options);
    heif_decoding_options_free(options);
    TQ_TRY(status_of(decoded));
    int stride = 0;
    const std::uint8_t* const pixels =
        heif_image_get_plane_readonly(image_, heif_channel_interleaved, &stride);
    const bool as_said = heif_image_get_width(image_, heif_channel_interleaved) == width &&
                         heif_image_get_height(image_, heif_channel_interleaved) == height;
    if (pixels == nullptr || !as_said) return StatusCode::bad_image;
    for (int y = 0; y < height; ++y) {
      TQ_TRY(rows.put({pixels + std::ptrdiff_t{y} * stride, static_cast<std::size_t>(stride)},
                      has_alpha, is_mixed));
    }
    return kOk;
  }

 private:
  static Status status_of(const heif_error& error) {
    switch (error.code) {
      case heif_error_Ok:
        return kOk;
      case heif_error_Memory_allocation_error:
        return StatusCode::out_of_memory;
      case heif_error_Unsupported_feature:
      case heif_error_Unsupported_filetype:
      case heif_error_Plugin_loading_error:
        return StatusCode::unsupported;
      default:
        return StatusCode::bad_image;
    }
  }

  heif_context* context_ = nullptr;
  heif_image_handle* handle_ = nullptr;
  heif_image* image_ = nullptr;
};

}  // namespace

// ISO/IEC 23008-12: a box of the type of the file, and the brands that stand for pictures.
bool is_heif(Bytes head) {
  constexpr std::string_view kBrands[] = {"heic", "heix", "hevc", "heim", "heis",
                                          "mif1", "msf1", "avif", "avis", "mif2"};
  const std::string_view text(reinterpret_cast<const char*>(head.data()), head.size());
  return text.size() >= 12 && text.substr(4, 4) == "ftyp" &&
         std::ranges::find(kBrands, text.substr(8, 4)) != std::end(kBrands);
}

Status count_heif(Bytes file) {
  Heif heif;
  TQ_TRY(heif.open(file));
  return Status::from_raw(std::min(heif.pictures(), kMostPictures));
}

Status decode_heif(Bytes file, std::int32_t page, const formats::RowSink& sink) {
  Heif heif;
  TQ_TRY(heif.open(file));
  TQ_TRY(heif.choose(page));
  return heif.decode(sink);
}

}  // namespace tq::ext
