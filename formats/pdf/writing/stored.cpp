// Pictures whose data are coded already.
#include "formats/stored.h"

#include "formats/jpeg/jpeg.h"
#include "formats/pdf/pdf.h"
#include "formats/pdf/writing/page.h"
#include "formats/plugin/plugin.h"

namespace tq::pdf {
namespace {

using formats::StoredPicture;
using writing::Coding;
using writing::Form;
using writing::Space;

constexpr std::int32_t kFor16Bits = 15;  // 1.5

Form form_of(const StoredPicture& stored) {
  Form form{.width = stored.width, .height = stored.height, .bits = stored.bits};
  form.space = stored.components == 1   ? Space::grey
               : stored.components == 3 ? Space::rgb
                                        : Space::cmyk;
  switch (stored.coding) {
    case StoredPicture::Coding::jpeg:
      form.coding = Coding::jpeg;
      form.inverted = stored.inverted;
      form.is_rgb = stored.is_rgb;
      break;
    case StoredPicture::Coding::group4:
      form.coding = Coding::group4;
      form.black_is_1 = stored.inverted;
      form.ends = false;
      break;
    case StoredPicture::Coding::png_rows:
      form.coding = Coding::png_rows;
      if (stored.colours == 0) break;
      form.space = Space::indexed;
      form.palette = std::span(stored.palette).first(stored.colours);
      break;
  }
  return form;
}

Status prepare(const formats::EncodeRequest& request, const StoredPicture& stored,
               writing::Page& page) {
  if (request.options.get(IMG_OPTION_PDF_WRITING) != 1) return StatusCode::unsupported;
  page.form = form_of(stored);
  if (stored.bits == 16) page.version = kFor16Bits;
  return lay_out_page(request.options, stored.resolution, stored.orientation, page);
}

}  // namespace

Status find_stored_page(const formats::DecodeRequest& request, StoredPicture& stored) {
  TQ_TRY(plugin::find_stored_picture(request, stored));
  if (stored.coding != StoredPicture::Coding::jpeg) return kOk;
  // A stream that is shown otherwise than it says by itself would be another picture elsewhere.
  const StoredPicture on_page = stored;
  TQ_TRY(jpeg::describe_stored(stored));
  const bool same = stored.width == on_page.width && stored.height == on_page.height &&
                    stored.components == on_page.components &&
                    (stored.components != 4 || stored.inverted == on_page.inverted);
  return same ? StatusCode::ok : StatusCode::unsupported;
}

Status can_store_page(const formats::EncodeRequest& request, const StoredPicture& stored) {
  writing::Page page;
  return prepare(request, stored, page);
}

Status encode_stored_page(const formats::EncodeRequest& request, const StoredPicture& stored) {
  writing::Page page{.bytes = stored.bytes, .texts = request.texts, .context = &stored};
  TQ_TRY(prepare(request, stored, page));
  page.write_data = [](const void* context, const Form& /*form*/, StreamWriter& out,
                       std::int64_t& beside) {
    beside = 0;
    return copy_stored(*static_cast<const StoredPicture*>(context), out);
  };
  return write_page(request.stream, request.is_safe(), page);
}

}  // namespace tq::pdf
