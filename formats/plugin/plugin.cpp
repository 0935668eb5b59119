// The separately loaded modules: one table of them and one of their entries, loading at the first
// call, and codecs that forward to them, with the library's stream functions.
#include "formats/plugin/plugin.h"

#include <array>
#include <iterator>
#include <utility>

#include "core/context.h"
#include "formats/gif/gif.h"
#include "formats/stored.h"
#include "formats/tiff/tiff.h"
#include "include/tarnquill_plugin.h"
#include "platform/module.h"

namespace tq::plugin {
namespace {

using formats::DecodeRequest;
using formats::EncodeRequest;
using formats::RowSink;
using formats::RowSupplier;

// --- What modules are handed ---

constexpr std::uint32_t kPage = 0x80000000;  // a page number in the other 31 bits, and no offset

std::span<std::uint8_t> bytes_of(void* buffer, std::int32_t count) {
  if (buffer == nullptr || count < 0) return {};
  return std::span(static_cast<std::uint8_t*>(buffer), count);
}

std::int32_t IMG_CB_C read_stream(std::int32_t stream, void* buffer, std::int32_t count) {
  return read_fully(StreamHandle{stream}, bytes_of(buffer, count));
}
std::int32_t IMG_CB_C write_stream(std::int32_t stream, void* buffer, std::int32_t count) {
  return write(StreamHandle{stream}, bytes_of(buffer, count));
}

// What the library called an entry for that may come back with a coder: the entry's arguments do
// not say all of it. For the scope.
class AtWork {
 public:
  AtWork(const DecodeRequest* decode, const EncodeRequest* encode, DecoderWithCoder run = nullptr,
         bool counts_pages = false)
      : decode_(decode),
        encode_(encode),
        decoder_(run),
        counts_pages_(counts_pages),
        before_(std::exchange(context().module_request, this)) {}
  ~AtWork() { context().module_request = before_; }
  AtWork(const AtWork&) = delete;
  AtWork& operator=(const AtWork&) = delete;

  // Null when no such call is at work.
  static const DecodeRequest* decode() { return current() ? current()->decode_ : nullptr; }
  static const EncodeRequest* encode() { return current() ? current()->encode_ : nullptr; }
  // Whether the module counts pages: it says more, and is told more.
  static bool counts_pages() { return current() != nullptr && current()->counts_pages_; }
  static DecoderWithCoder decoder() { return current()->decoder_; }  // there is a call

 private:
  static const AtWork* current() { return static_cast<const AtWork*>(context().module_request); }

  const DecodeRequest* decode_;
  const EncodeRequest* encode_;
  DecoderWithCoder decoder_;
  bool counts_pages_;
  const void* before_;
};

std::int32_t IMG_CB_C seek_stream(std::int32_t stream, std::int32_t offset, std::int32_t origin) {
  // Such a module reads from the end: not where memory only seems to have one.
  const bool is_nowhere = AtWork::counts_pages() && Origin{origin} == Origin::end &&
                          !end_is_known(StreamHandle{stream});
  return is_nowhere ? -1 : seek(StreamHandle{stream}, offset, Origin{origin});
}

// Thousandths that a header of dots per inch has no room for.
void take_resolution(BitmapInfoHeader& header, const RowSink& sink) {
  const std::uint32_t rest = std::exchange(header.biClrImportant, 0);
  const auto exact = [](std::int32_t dots, std::uint32_t more) {
    const std::int64_t value = 1000 * std::int64_t{dots} + (more & 0xFFFF) - 1000;
    return value > 0 && value <= Resolution::kMost ? static_cast<std::int32_t>(value) : 0;
  };
  if (rest == 0) return;
  sink.resolution({exact(header.biXPelsPerMeter, rest), exact(header.biYPelsPerMeter, rest >> 16)});
}

// Modules are promised callbacks that can be called.
std::int32_t IMG_CB_C take_header(void* block, void* context) {
  const RowSink& sink = *static_cast<const RowSink*>(context);
  if (sink.notes != nullptr) {
    const Status fits = sink.notes->begin(static_cast<const HeaderBlock*>(block)->header);
    if (fits.failed()) return fits.raw();
  }
  if (AtWork::counts_pages()) take_resolution(static_cast<HeaderBlock*>(block)->header, sink);
  return sink.on_header == nullptr ? 1 : sink.on_header(block, sink.context);
}
std::int32_t IMG_CB_C take_row(void* row, void* context, std::int32_t y, std::int32_t bytes) {
  const RowSink& sink = *static_cast<const RowSink*>(context);
  if (sink.notes != nullptr) sink.notes->add_row(y);
  return sink.on_row == nullptr ? 0 : sink.on_row(row, sink.context, y, bytes);
}
std::int32_t IMG_CB_C no_row(void* /*context*/, void* /*dest*/, std::int32_t /*y*/,
                             std::int32_t /*bytes*/) {
  return IMG_UNSUPPORTED;
}

// TIFF's way back from the module.
std::int32_t IMG_CB_C code_tiff(const img_tiff_request* call) {
  if (call == nullptr || call->size != sizeof *call || call->coder == nullptr ||
      call->coder->size != sizeof *call->coder) {
    return IMG_UNSUPPORTED;
  }
  const StreamHandle stream{call->stream};
  if (call->call == IMG_TIFF_ENCODE) {
    if (!formats::kSaves || AtWork::encode() == nullptr) return IMG_UNSUPPORTED;
    EncodeRequest request = *AtWork::encode();
    request.stream = stream;
    request.image = static_cast<HeaderBlock*>(call->header_block);
    request.rows = {call->supply, call->save_context};
    return tiff::encode_tiff_with(request, *call->coder).raw();
  }
  if (AtWork::decode() == nullptr) return IMG_UNSUPPORTED;
  DecodeRequest request = *AtWork::decode();
  request.stream = stream;
  // A module that hands its own arguments on need not be asked on the way.
  if (call->row != take_row) request.sink = {call->header, call->row, call->sink_context};
  request.page = -1;
  request.offset = 0;
  if ((call->offset_or_page & kPage) != 0) {
    request.page = call->offset_or_page & ~kPage;
  } else {
    request.offset = call->offset_or_page;
  }
  return AtWork::decoder()(request, *call->coder).raw();
}

// --- Modules ---

// In the order in which they are unloaded.
enum ModuleIndex { kLzw, kPdf, kAbic, kExtended, kModules };

struct Module {
  const char* stem;
  bool takes_callbacks;
  bool takes_helper;
  StatusCode missing;  // it, or an entry of it
};

constexpr Module kModuleTable[] = {
    {"trqvpl1", true, true, StatusCode::no_lzw_module},
    {"pdfplug", true, false, StatusCode::no_pdf_module},
    {"abicplug", false, false, StatusCode::out_of_memory},
    {"trqvext", true, false, StatusCode::unsupported},
};
static_assert(std::size(kModuleTable) == kModules);

enum EntryIndex {
  kDecodeGif,
  kEncodeGif,
  kEncodeGifInterlaced,
  kDecodeTiffLzw,
  kEncodeTiffLzw,
  kDecodePdf,
  kCountPdfPages,
  kFindStoredPicture,
  kDecodeAbic,
  kProbeExtended,
  kDecodeExtended,
  kCountExtended,
  kDecodeJpeg2000,
  kDecodeJbig2,
  kEntries
};

struct Entry {
  ModuleIndex module;
  const char* name;
};

constexpr Entry kEntryTable[] = {
    {kLzw, "decode_gif"},      {kLzw, "encode_gif"},          {kLzw, "encode_gifi"},
    {kLzw, "decode_tif"},      {kLzw, "encode_tif"},          {kPdf, "decode_pdf"},
    {kPdf, "count_pages"},     {kPdf, "find_stored_picture"}, {kAbic, "IMG_decomp_abic"},
    {kExtended, "probe_ext"},  {kExtended, "decode_ext"},     {kExtended, "count_ext"},
    {kExtended, "decode_j2k"}, {kExtended, "decode_jbig2"},
};
static_assert(std::size(kEntryTable) == kEntries);

// Of the process. The lock is held while modules come and go and while their entries are looked up,
// not while an entry runs.
struct Loaded {
  platform::RecursiveLock lock;  // set_callbacks is a module's code, too
  std::array<void*, kModules> modules{};
  std::array<void*, kEntries> entries{};
  int calls = 0;  // of entries, that have not returned
  bool unload_wanted = false;
};

Loaded& loaded() {
  static constinit Loaded state;
  return state;
}

class LoadedLock {
 public:
  LoadedLock() { loaded().lock.lock(); }
  ~LoadedLock() { loaded().lock.unlock(); }
  LoadedLock(const LoadedLock&) = delete;
  LoadedLock& operator=(const LoadedLock&) = delete;
};

// Whatever was known of the module before is forgotten.
void find_entries(int index, void* module) {
  for (int i = 0; i < kEntries; ++i) {
    if (kEntryTable[i].module != index) continue;
    loaded().entries[i] =
        module == nullptr ? nullptr : platform::module_symbol(module, kEntryTable[i].name);
  }
}

void hand_over_callbacks(void* module, const Module& row) {
  if (!row.takes_callbacks) return;
  const auto set =
      reinterpret_cast<img_set_callbacks_fn>(platform::module_symbol(module, "set_callbacks"));
  if (set == nullptr) return;
  set(read_stream, write_stream, seek_stream, row.takes_helper ? code_tiff : nullptr);
}

// For modules whose files hold pictures of other codings. They ask while they decode.
std::int32_t IMG_CB_C decode_picture(const img_coded_picture* picture) {
  const DecodeRequest* const request = AtWork::decode();
  if (picture == nullptr || picture->size != sizeof *picture || request == nullptr) {
    return IMG_UNSUPPORTED;
  }
  return decode_coded(*picture, request->options).raw();
}

void hand_over_decoder(void* module) {
  const auto set = reinterpret_cast<img_set_picture_decoder_fn>(
      platform::module_symbol(module, "set_picture_decoder"));
  if (set != nullptr) set(decode_picture);
}

Status load(ModuleIndex index) {
  if (loaded().modules[index] != nullptr) return kOk;
  const Module& row = kModuleTable[index];
  bool unknown = false;
  void* const module = platform::module_open(row.stem, unknown);
  if (module == nullptr) return unknown ? StatusCode::cannot_open : row.missing;
  platform::at_detach(unload_plugins);
  loaded().modules[index] = module;
  find_entries(index, module);
  hand_over_callbacks(module, row);
  if (index == kPdf) hand_over_decoder(module);
  return kOk;
}

void* loaded_entry(EntryIndex entry) {
  const LoadedLock locked;
  return loaded().entries[entry];
}

// A call of an entry, whose module stays loaded until the end of the scope.
class Call {
 public:
  Call() = default;
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;
  ~Call() {
    if (!begun_) return;
    const LoadedLock locked;
    if (--loaded().calls == 0 && loaded().unload_wanted) unload_plugins();
  }

  // Loads the module if need be. cannot_open when there was no descriptor left to look for it.
  Status begin(EntryIndex entry) {
    const ModuleIndex module = kEntryTable[entry].module;
    const LoadedLock locked;
    ++loaded().calls;
    begun_ = true;
    TQ_TRY(load(module));
    address_ = loaded().entries[entry];
    entry_ = entry;
    return address_ != nullptr ? StatusCode::ok : kModuleTable[module].missing;
  }

  Status decode(const DecodeRequest& request,
                DecoderWithCoder decoder = tiff::decode_tiff_with) const {
    // A module that counts pages says more, of damage and resolution.
    const bool says_more = (entry_ == kDecodePdf && loaded_entry(kCountPdfPages) != nullptr) ||
                           entry_ == kDecodeExtended;
    const AtWork at_work(&request, nullptr, decoder, says_more);
    const std::uint32_t offset_or_page = request.has_page() ? kPage | request.page : request.offset;
    const auto decoded = Status::from_raw(reinterpret_cast<img_plugin_decode_fn>(address_)(
        offset_or_page, take_row, const_cast<RowSink*>(&request.sink), take_header,
        static_cast<std::int32_t>(request.stream)));
    if (decoded.raw() == IMG_PLUGIN_DAMAGED) request.sink.last_row_damaged();
    if (says_more && decoded.raw() == IMG_PLUGIN_CONTRADICTS) {
      request.sink.last_row_damaged(StatusCode::bad_image);
    }
    if (says_more && decoded.raw() == IMG_PLUGIN_LEFT_OUT) {
      request.sink.damaged(StatusCode::unsupported);
    }
    return decoded;
  }

  Status count_pages(StreamHandle stream) const {
    const AtWork at_work(nullptr, nullptr, nullptr, true);
    return Status::from_raw(
        reinterpret_cast<img_plugin_count_fn>(address_)(static_cast<std::int32_t>(stream)));
  }

  std::int32_t probe(std::span<const std::uint8_t> bytes) const {
    return reinterpret_cast<img_plugin_probe_fn>(address_)(bytes.data(),
                                                           static_cast<std::int32_t>(bytes.size()));
  }

  Status decode_coded(const img_coded_picture& picture) const {
    return Status::from_raw(reinterpret_cast<img_plugin_coded_fn>(address_)(&picture));
  }

  Status find_stored(const DecodeRequest& request, img_stored_picture& picture) const {
    const AtWork at_work(&request, nullptr, nullptr, loaded_entry(kCountPdfPages) != nullptr);
    return Status::from_raw(reinterpret_cast<img_plugin_stored_fn>(address_)(
        static_cast<std::int32_t>(request.stream), request.offset, std::max(request.page, 0),
        &picture));
  }

  Status encode(const EncodeRequest& request) const {
    const AtWork at_work(nullptr, &request);
    const RowSupplier& rows = request.rows;
    return Status::from_raw(reinterpret_cast<img_plugin_encode_fn>(address_)(
        static_cast<std::int32_t>(request.stream), request.image,
        rows.on_row == nullptr ? no_row : rows.on_row, rows.context));
  }

 private:
  void* address_ = nullptr;
  EntryIndex entry_ = kEntries;
  bool begun_ = false;
};

// --- Codecs ---

constexpr int kDeepestGif = 8, kLargestGifSide = 65535;

Status available(EntryIndex entry) {
  Call call;
  return call.begin(entry);
}

Status decode(EntryIndex entry, const DecodeRequest& request) {
  Call call;
  TQ_TRY(call.begin(entry));
  return call.decode(request);
}

Status encode(EntryIndex entry, const EncodeRequest& request) {
  Call call;
  TQ_TRY(call.begin(entry));
  return call.encode(request);
}

}  // namespace

void unload_plugins() {
  const LoadedLock locked;
  Loaded& state = loaded();
  // Code that is running must not go away: a callback of it may have come here.
  state.unload_wanted = state.calls != 0;
  if (state.unload_wanted) return;
  for (int i = 0; i < kModules; ++i) {
    if (state.modules[i] == nullptr) continue;
    platform::module_close(state.modules[i]);
    state.modules[i] = nullptr;
    find_entries(i, nullptr);
  }
}

Status decode_gif(const DecodeRequest& request) {
  const auto decode_frame = [](const DecodeRequest& frame) { return decode(kDecodeGif, frame); };
  const bool as_shown = request.options.get(IMG_OPTION_READING) == 1 && request.page <= 0;
  return as_shown ? gif::decode_on_screen(request, decode_frame) : decode_frame(request);
}
Status encode_gif(const EncodeRequest& request) {
  return encode(request.variant() == kGifInterlaced ? kEncodeGifInterlaced : kEncodeGif, request);
}
Status decode_tiff_lzw(const DecodeRequest& request) {
  return decode(kDecodeTiffLzw, request);
}
Status decode_with_lzw(const DecodeRequest& request, DecoderWithCoder decoder) {
  Call call;
  TQ_TRY(call.begin(kDecodeTiffLzw));
  return call.decode(request, decoder);
}
Status encode_tiff_lzw(const EncodeRequest& request) {
  return encode(kEncodeTiffLzw, request);
}
Status decode_abic(const DecodeRequest& request) {
  return decode(kDecodeAbic, request);
}

Status decode_pdf_by_module(const DecodeRequest& request, bool& available) {
  Call call;
  const Status begun = call.begin(kDecodePdf);
  available = begun.ok();
  TQ_TRY(begun);
  return call.decode(request);
}

Status count_pdf_pages(StreamHandle stream) {
  Call call;
  const Status begun = call.begin(kCountPdfPages);
  return begun.ok() ? call.count_pages(stream) : Status::from_raw(1);
}

Status find_stored_picture(const DecodeRequest& request, formats::StoredPicture& stored) {
  Call call;
  if (call.begin(kFindStoredPicture).failed()) return StatusCode::unsupported;
  img_stored_picture picture{};
  picture.size = sizeof picture;
  TQ_TRY(call.find_stored(request, picture));
  const bool is_jpeg = picture.coding == IMG_STORED_JPEG;
  if (!is_jpeg && picture.coding != IMG_STORED_T6) return StatusCode::unsupported;
  using Coding = formats::StoredPicture::Coding;
  stored.coding = is_jpeg ? Coding::jpeg : Coding::group4;
  stored.stream = request.stream;
  stored.offset = picture.offset;
  stored.bytes = picture.bytes;
  stored.width = picture.width;
  stored.height = picture.height;
  stored.bits = is_jpeg ? 8 : 1;
  stored.components = picture.components;
  stored.inverted = picture.inverted != 0;
  stored.is_described = true;
  stored.orientation = picture.orientation;
  stored.resolution = {picture.x_resolution, picture.y_resolution};
  if (stored.orientation >= 5) std::swap(stored.resolution.x, stored.resolution.y);
  const bool makes_sense = stored.offset >= 0 && stored.bytes > 0 && stored.width > 0 &&
                           stored.height > 0 && stored.orientation >= 1 && stored.orientation <= 8;
  return makes_sense ? StatusCode::ok : StatusCode::unsupported;
}

Status can_encode_gif(const EncodeRequest& request) {
  const BitmapInfoHeader& header = request.image->header;
  if (header.biBitCount > kDeepestGif) return StatusCode::wrong_depth;
  const bool fits = header.biWidth <= kLargestGifSide && header.biHeight <= kLargestGifSide;
  return fits ? StatusCode::ok : StatusCode::unsupported;
}

Status gif_encoder_available() {
  return available(kEncodeGif);
}
Status gif_interlaced_encoder_available() {
  return available(kEncodeGifInterlaced);
}
Status tiff_lzw_encoder_available() {
  return available(kEncodeTiffLzw);
}

std::int32_t probe_extended(const formats::Probe& probe) {
  std::array<std::uint8_t, IMG_PROBE_BYTES> bytes{};
  if (!end_is_known(probe.stream)) return 0;
  const bool there =
      seek_to(probe.stream, probe.start).ok() && read_fully(probe.stream, bytes) == IMG_PROBE_BYTES;
  Call call;
  return there && call.begin(kProbeExtended).ok() ? call.probe(bytes) : 0;
}

Status decode_extended(const DecodeRequest& request) {
  return decode(kDecodeExtended, request);
}

Status count_extended_pages(StreamHandle stream) {
  Call call;
  TQ_TRY(call.begin(kCountExtended));
  return call.count_pages(stream);
}

Status extended_available() {
  return available(kDecodeExtended);
}

Status decode_coded(const img_coded_picture& picture, const Options& options) {
  if (options.get(IMG_OPTION_EXTENDED_FORMATS) != 1) return StatusCode::unsupported;
  Call call;
  TQ_TRY(call.begin(picture.coding == IMG_CODED_JBIG2 ? kDecodeJbig2 : kDecodeJpeg2000));
  return call.decode_coded(picture);
}

Status count_gif_pages(StreamHandle /*stream*/) {
  return StatusCode::no_lzw_module;
}

}  // namespace tq::plugin
