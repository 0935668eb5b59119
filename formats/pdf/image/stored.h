// Rows of a picture as its stream holds them.
#pragma once

#include "formats/fax.h"
#include "formats/jpeg/jpeg.h"
#include "formats/pdf/content/content.h"
#include "formats/pdf/image/filters.h"

namespace tq::pdf::image {

class StoredPicture {
 public:
  StoredPicture() = default;
  StoredPicture(const StoredPicture&) = delete;
  StoredPicture& operator=(const StoredPicture&) = delete;

  // An object, or an inline picture whose text outlives this. unsupported, bad_image, out_of_memory.
  Status open(objects::File& file, const content::Painted& painted);

  // An entry of the dictionary, wherever it stands. `owner` becomes the object in whose text it is.
  Status find(const char* key, const char* abbreviation, objects::Value& value,
              objects::Object& room, const objects::Object*& owner) const;
  Status find(const char* key, const char* abbreviation, objects::Value& value,
              objects::Object& room) const {
    const objects::Object* ignored = nullptr;
    return find(key, abbreviation, value, room, ignored);
  }

  std::int32_t width() const { return width_; }
  std::int32_t height() const { return height_; }
  int bits() const { return bits_; }  // of a sample: 1, 2, 4, 8, 16
  bool is_mask() const { return is_mask_; }
  bool is_fax() const { return form_.last == PictureCoding::fax; }
  // Run lists are as wide as the picture.
  bool has_runs() const { return is_fax() && form_.fax.columns == width_; }
  bool black_is_1() const { return form_.fax.black_is_1; }

  // What codes them may know how many samples a pixel has; else 0. Three are then in the order blue,
  // green, red.
  int components() const { return components_; }
  bool is_inverted() const { return converted_inks_; }  // each sample

  // Rows of so many samples a pixel go to the sink. Damage is told to `whole` as well.
  Status decode(int components, formats::DecodeNotes* whole, formats::RowSink sink) const;
  // The same of facsimiles, which have one: bits, or run lists. Inverted: what is coded as white is
  // black, a bit of 0.
  Status decode_fax(formats::FaxRows rows, bool inverted, formats::DecodeNotes* whole,
                    formats::RowSink sink) const;

 private:
  class Source;
  Status read_sizes();
  Status read_jpeg();
  Status read_jpeg_2000();
  jpeg::Components jpeg_components() const;
  template <class Rows>
  Status decode_jpeg_2000_to(Rows& rows) const;
  Status decode_jpeg_2000(const formats::RowSink& sink) const;
  Status decode_jbig2(const formats::RowSink& sink) const;
  Status decode_plain(Source& source, int components, const formats::RowSink& sink) const;

  objects::File* file_ = nullptr;
  objects::Object object_;
  objects::Value dictionary_;
  std::span<const std::uint8_t> inline_data_{};
  bool is_inline_ = false;
  StreamForm form_;
  jpeg::StreamHeader jpeg_;
  int components_ = 0;
  bool converted_inks_ = false;
  bool is_mask_ = false;
  std::int32_t width_ = 0, height_ = 0;
  int bits_ = 0;
};

}  // namespace tq::pdf::image
