// A page of any file into any other: as it is coded, where the other one can hold that, else decoded and
// saved.
#include <algorithm>
#include <cstring>

#include "core/context.h"
#include "dispatch/dispatch.h"
#include "dispatch/output.h"
#include "formats/stored.h"

namespace tq::dispatch {
namespace {

using formats::EncodeRequest;
using formats::StoredPicture;

constexpr std::int32_t kCopied = 0, kRecoded = 1;

// Pages come whole, whatever decodes are set to.
class WholePictures {
 public:
  WholePictures() : before_(context().settings) {
    Settings& settings = context().settings;
    const Settings none;
    settings.decomp_reduction = none.decomp_reduction;
    settings.decomp_size = none.decomp_size;
    settings.decomp_rect = none.decomp_rect;
  }
  WholePictures(const WholePictures&) = delete;
  WholePictures& operator=(const WholePictures&) = delete;
  ~WholePictures() {
    Settings& settings = context().settings;
    settings.decomp_reduction = before_.decomp_reduction;
    settings.decomp_size = before_.decomp_size;
    settings.decomp_rect = before_.decomp_rect;
  }

 private:
  Settings before_;
};

std::int32_t IMG_CB_C take_header(void* block, void* header) {
  *static_cast<HeaderBlock*>(header) = *static_cast<const HeaderBlock*>(block);
  return IMG_STOP_AFTER_HEADER;
}

// What lies at a page, with the resolution and the orientation of its picture; unsupported for what
// has to be decoded.
Status find_stored(const SourcePage& source, const FileType& type, StoredPicture& stored,
                   HeaderBlock& header) {
  if (type.find_stored == nullptr) return StatusCode::unsupported;
  const Options& options = context().options;
  formats::DecodeNotes notes;
  formats::DecodeRequest request{.stream = source.stream,
                                 .offset = source.offset,
                                 .sink = {take_header, nullptr, &header, &notes},
                                 .page = source.page > 0 ? source.page : -1,
                                 .options = options};
  // As other programs read them: all that the file says about how it is to be shown.
  request.options.set(IMG_OPTION_READING, 1);
  request.options.set(IMG_OPTION_ORIENTATION, 1);
  const auto go_there = [&] { return seek_to(source.stream, source.offset); };
  TQ_TRY(go_there());
  TQ_TRY(type.find_stored(request, stored));
  const std::int64_t pixels = std::int64_t{stored.width} * stored.height;
  if (pixels > options.limit(IMG_OPTION_MAX_PIXELS, INT64_MAX)) return StatusCode::out_of_memory;
  if (stored.is_described) return kOk;
  TQ_TRY(go_there());
  const Status decoded = type.decode(request);
  if (decoded != StatusCode::stop_after_header) {
    return decoded.failed() ? decoded : StatusCode::unsupported;
  }
  stored.resolution = notes.resolution.x > 0 ? notes.resolution : resolution_of(header.header);
  stored.orientation = notes.orientation;
  return kOk;
}

// The picture as its target's header would have it.
void describe(const StoredPicture& stored, HeaderBlock& header) {
  const int bits = std::min(stored.bits * stored.components, kDeepest);
  header = dib_header(stored.width, stored.height, bits);
  BitmapInfoHeader& fields = header.header;
  fields.biXPelsPerMeter = (stored.resolution.x + 500) / 1000;
  fields.biYPelsPerMeter = (stored.resolution.y + 500) / 1000;
}

// Where pages go: a stream, or a file of this name.
struct Target {
  StreamHandle stream{-1};
  const char* name = nullptr;
};

Status save(const Target& target, const FileType& type, EncodeRequest& request,
            const StoredPicture& stored) {
  if (target.name == nullptr) {
    request.stream = target.stream;
    return type.encode_stored(request, stored);
  }
  Output output(file_name(target.name), request.is_safe());
  request.place = {.over_debris = request.is_safe(), .options = request.options};
  TQ_TRY(output.open(type, request.place));
  request.stream = output.handle();
  return output.close(type.encode_stored(request, stored));
}

// unsupported where nothing can be copied, and nothing has been done.
Status copy_stored_page(const SourcePage& source, const FileType& from, const Target& target,
                        const FileType& to) {
  StoredPicture stored;
  HeaderBlock header;
  // What is written must not be what is still to be read.
  const bool same = target.name != nullptr && source.name != nullptr
                        ? std::strcmp(source.name, target.name) == 0
                        : source.stream == target.stream;
  if (to.encode_stored == nullptr || same) return StatusCode::unsupported;
  TQ_TRY(find_stored(source, from, stored, header));
  describe(stored, header);
  EncodeRequest request{.stream = target.stream,
                        .image = &header,
                        .rows = {},
                        .type = &to,
                        .options = context().options,
                        .resolution = stored.resolution,
                        .texts = &context().texts};
  if (to.can_store(request, stored).failed()) return StatusCode::unsupported;
  const Status saved = save(target, to, request, stored);
  // Whatever it was, it has been tried.
  if (saved == StatusCode::unsupported) return StatusCode::bad_image;
  return saved.failed() ? saved : Status::from_raw(kCopied);
}

Status recode_page(const SourcePage& source, const Target& target, std::int32_t code) {
  const WholePictures whole;
  const Status decoded = decode_image(source.stream, source.offset, source.page);
  TQ_TRY(decoded);
  const ImageHandle image{decoded.raw()};
  const std::uint64_t serial = image_record(image).serial;
  const Status saved = target.name != nullptr ? save_image_file(image, target.name, code)
                                              : save_image(image, target.stream, code);
  if (find_image(image, serial) != nullptr) TQ_TRY(free_image_slot(image));
  return saved.failed() ? saved : Status::from_raw(kRecoded);
}

Status copy_page(const SourcePage& source, const Target& target, std::int32_t code) {
  if (source.page < 0) return StatusCode::page_past_end;
  const FileType* const to = find_code(code);
  if (to == nullptr || to->encode == nullptr) return StatusCode::unsupported;
  const FileType* from = nullptr;
  TQ_TRY(seek_to(source.stream, source.offset));
  TQ_TRY(detect(source.stream, from));
  if (from == nullptr || from->decode == nullptr) return StatusCode::unsupported;
  const bool is_alone = from->count_pages == nullptr && (from->traits & formats::kMultiPage) == 0;
  const bool is_past = source.page >= context().options.limit(IMG_OPTION_MAX_PAGES, INT64_MAX);
  if ((is_alone && source.page > 0) || is_past) return StatusCode::page_past_end;
  const Status copied = copy_stored_page(source, *from, target, *to);
  return copied == StatusCode::unsupported ? recode_page(source, target, code) : copied;
}

}  // namespace

Status copy_page_to_stream(const SourcePage& source, StreamHandle target, std::int32_t code) {
  return copy_page(source, {.stream = target}, code);
}

Status copy_page_to_file(const SourcePage& source, const char* name, std::int32_t code) {
  if (name == nullptr) return StatusCode::cannot_open;
  return copy_page(source, {.name = name}, code_to_save(name, code));
}

}  // namespace tq::dispatch
