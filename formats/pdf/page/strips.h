// A picture that may have been cut into strips, as scanners store pages.
#pragma once

#include "formats/pdf/image/picture.h"

namespace tq::pdf::page {

class Strips {
 public:
  // One picture; or several that have one width, one look and abut, to half a pixel. Nothing is decoded
  // yet; what Picture::open() answers. The list is to outlive this.
  Status open(objects::File& file, std::span<const content::Painted> pictures);

  // Otherwise the rest here means nothing.
  bool is_one_picture() const { return is_one_; }

  const HeaderBlock& image() const { return image_; }
  bool has_runs() const { return has_runs_; }
  const content::Matrix& matrix() const { return matrix_; }
  const content::Rectangle& clip() const { return clip_; }

  // All rows, from y = 0 on; the sink's header is not called.
  Status decode(const formats::RowSink& sink, formats::FaxRows fax);

 private:
  struct Strip {
    const content::Painted* painted;
    std::int32_t height;
    double place;  // of its top, along the way down
  };
  std::span<Strip> strips() const;
  bool add(const image::Picture& picture, const content::Painted& painted, Strip& strip);
  bool join();

  objects::File* file_ = nullptr;
  GlobalBlock strips_;
  std::ptrdiff_t count_ = 0;
  bool is_one_ = false, has_runs_ = false;
  bool one_clip_ = true, any_cut_ = false;  // of all; by it
  HeaderBlock image_;
  content::Matrix matrix_;
  content::Rectangle clip_;
};

}  // namespace tq::pdf::page
