// What a format is: its row in the table of formats, and its codec, a function from a stream to a
// row sink or from a row supplier to a stream.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string_view>
#include <type_traits>

#include "core/dib.h"
#include "core/numbers.h"
#include "core/options.h"
#include "core/status.h"
#include "core/texts.h"
#include "include/tarnquill.h"
#include "io/byte_stream.h"

namespace tq::formats {

// What is remembered of a decode beside the picture itself.
struct DecodeNotes {
  std::int64_t most_pixels = INT64_MAX;  // that the picture may have
  std::int32_t height = 0;               // in its header
  std::int32_t rows = 0;                 // delivered without damage
  std::int32_t top = 0, bottom = 0;      // these, if they lie together: top .. bottom - 1
  bool upwards = false, scattered = false;
  StatusCode damage = StatusCode::ok;
  Resolution resolution{};
  int orientation = 1;           // as TIFF counts; of the picture whose header came
  DecodeNotes* whole = nullptr;  // of the picture that this one is a part of

  Status begin(const BitmapInfoHeader& header) {
    height = header.biHeight;
    rows = top = bottom = 0;
    upwards = scattered = false;
    const bool fits = std::int64_t{header.biWidth} * header.biHeight <= most_pixels;
    return fits ? StatusCode::ok : StatusCode::out_of_memory;
  }
  void add_row(std::int32_t y) {
    if (damage != StatusCode::ok) return;
    if (rows++ == 0) top = bottom = y;
    upwards = y != bottom;
    scattered = scattered || (upwards && y != top - 1);
    upwards ? top = y : bottom = y + 1;
  }
  void drop_last_row() {
    if (damage != StatusCode::ok || rows == 0) return;
    --rows;
    upwards ? ++top : --bottom;
  }
  // The rows that are not as they were, if not all of those before are together at one end: all.
  RowRange lost() const {
    if (damage == StatusCode::ok || rows >= height) return {};
    if (scattered || rows == 0) return {0, height - 1};
    if (top == 0) return {bottom, height - 1};
    return {0, bottom == height ? top - 1 : height - 1};
  }
  void damaged(StatusCode reason) {
    if (damage == StatusCode::ok) damage = reason;
    if (whole != nullptr) whole->damaged(reason);
  }
  void rest_is_not_wanted() {
    if (damage == StatusCode::ok) rows = height;
  }
  void end() {
    if (rows < height) damaged(StatusCode::read_failed);
  }
};

// What a sink keeps of a picture; it may be handed anything in place of the rest. Known behind the
// header.
struct WantedPart {
  std::int32_t top = 0, bottom = INT32_MAX;  // rows top .. bottom - 1
  std::int32_t left = 0, right = INT32_MAX;  // columns
  // Of rows that come from the top: the first one that falls on each of `scaled_height`; 0: all.
  std::int32_t height = 0, scaled_height = 0;

  bool has_row(std::int32_t y) const {
    if (y < top || y >= bottom) return false;
    return y == 0 || scaled_height == 0 || scaled_row(y) != scaled_row(y - 1);
  }
  bool has_row_of(std::int32_t first, std::int32_t end) const {
    for (std::int32_t y = std::max(first, top); y < std::min(end, bottom); ++y) {
      if (has_row(y)) return true;
    }
    return false;
  }

 private:
  std::int64_t scaled_row(std::int32_t y) const { return std::int64_t{y} * scaled_height / height; }
};

// Takes a decoder's header and rows. The callbacks are the interface's own, so that callers with
// sinks of their own and separately loaded modules use the same contract.
struct RowSink {
  img_header_fn on_header = nullptr;
  img_row_fn on_row = nullptr;
  void* context = nullptr;
  DecodeNotes* notes = nullptr;
  const WantedPart* wanted = nullptr;  // everything

  // Once, before any row; the block outlives the decode. After it the geometry is known to be
  // valid: bad_image or out_of_memory is returned otherwise, whatever the callback said.
  Status header(HeaderBlock& block) const {
    if (notes != nullptr) TQ_TRY(notes->begin(block.header));
    if (on_header != nullptr) {
      const Status answer = Status::from_raw(on_header(&block, context));
      if (answer.failed()) return answer;
    }
    return check_geometry(block.header);
  }

  // y = 0 is the top row. `bytes` is the header's row size; for a 1-bit image any other length is a
  // run list, so a run list must not have exactly that length (append another closing word).
  Status row(std::span<const std::uint8_t> bytes, std::int32_t y) const {
    if (notes != nullptr) notes->add_row(y);
    if (on_row == nullptr) return kOk;
    return Status::from_raw(on_row(const_cast<std::uint8_t*>(bytes.data()), context, y,
                                   static_cast<std::int32_t>(bytes.size())));
  }

  // What comes from now on is not all that the file once held: read_failed where its data end, bad_image
  // where they make no sense. Before the first such row; rows that are not delivered count by themselves.
  void damaged(StatusCode reason) const {
    if (notes != nullptr) notes->damaged(reason);
  }

  // The last row that was delivered, no other.
  void last_row_damaged(StatusCode reason = StatusCode::read_failed) const {
    if (notes == nullptr) return;
    notes->drop_last_row();
    notes->damaged(reason);
  }

  // Whether row `y` is the last one that anybody keeps, of rows that come from the top, or from the bottom.
  // What comes behind it need not be looked at: nothing of the picture is missing.
  bool ends_at(std::int32_t y) const { return ends(wanted != nullptr && y >= wanted->bottom - 1); }
  bool ends_up_at(std::int32_t y) const { return ends(wanted != nullptr && y <= wanted->top); }
  bool ends(bool here) const {
    if (here && notes != nullptr) notes->rest_is_not_wanted();
    return here;
  }

  // The rows that are missing are blank by the format's own rules.
  void rest_is_blank() const {
    if (notes != nullptr) notes->height = notes->rows;
  }

  // Of the picture whose header comes next, where the file knows it more exactly than its header can say.
  void resolution(Resolution exact) const {
    if (notes != nullptr) notes->resolution = exact;
  }
  // And how it is to be turned: 1 to 8, as TIFF counts.
  void orientation(int orientation) const {
    if (notes != nullptr) notes->orientation = orientation;
  }
};

struct DecodeRequest {
  StreamHandle stream;
  std::int32_t offset = 0;  // where the file begins in the stream, unless a page is asked for
  RowSink sink;
  std::int32_t page = -1;  // of the file that begins at the stream's position; negative: by offset
  Options options{};       // as they were when the call began

  bool has_page() const { return page >= 0; }
  std::int32_t start() const { return has_page() ? position(stream) : offset; }
  Status seek_to_start() const {
    const bool there = has_page() || seek(stream, offset, Origin::start) >= 0;
    return there ? StatusCode::ok : StatusCode::read_failed;
  }
};
using Decoder = Status (*)(const DecodeRequest& request);

// Who takes rows that come by themselves.
struct RowTaker {
  std::span<std::uint8_t> bytes{};  // where each row is put, before it is taken
  bool from_below = false;          // they may come from the bottom up as well
  // With what a supplier would have answered.
  Status (*take)(const void* context, std::int32_t y, Status supplied) = nullptr;
  const void* context = nullptr;
};

struct RowSupplier {
  img_supply_fn on_row = nullptr;
  void* context = nullptr;
  // All rows as they would be supplied, from the lowest one, where they lie behind one another and nobody
  // follows the save; else empty.
  std::span<const std::uint8_t> stored = {};
  // In place of on_row: rows come by themselves, each once and in order. Only encoders that ask for them
  // by each() are given such a supplier (kTakesRows).
  Status (*push)(void* context, const RowTaker& taker) = nullptr;

  // Fills `bytes` with row y, 0 being the top of the picture. The result 0 means a row of pixels; a
  // result above 0 (1-bit codecs that ask for transitions) is the length of a transition list.
  Status row(std::span<std::uint8_t> bytes, std::int32_t y) const {
    if (on_row == nullptr) return StatusCode::unsupported;
    return Status::from_raw(
        on_row(context, bytes.data(), y, static_cast<std::int32_t>(bytes.size())));
  }

  // All rows from the top, each in `bytes`: calls take(y, what row() answered). One that comes by itself
  // leaves bytes behind it as they are.
  template <class Take>
  Status each(std::span<std::uint8_t> bytes, std::int32_t height, const Take& take) const {
    if (push != nullptr) return push(context, taker_of(bytes, take));
    for (std::int32_t y = 0; y < height; ++y) {
      const Status supplied = row(bytes, y);
      if (supplied.failed()) return supplied;
      TQ_TRY(take(y, supplied));
    }
    return kOk;
  }

  // `take` outlives the taker.
  template <class Take>
  static RowTaker taker_of(std::span<std::uint8_t> bytes, const Take& take) {
    const auto call = [](const void* to, std::int32_t y, Status supplied) -> Status {
      return (*static_cast<const Take*>(to))(y, supplied);
    };
    return {.bytes = bytes, .take = call, .context = &take};
  }
};

// Where a page is added, as the look at a file has found it; what it means is the codec's.
struct AppendPlace {
  std::int64_t link = 0;  // 0: nobody has looked
  std::int32_t page = 0;
  bool over_debris = false;  // asked for: what an addition that was cut off has left does not count
  Options options{};         // as they were when the call began
};

struct FileType;
struct StoredPicture;

// Geometry has been checked (check_geometry).
struct EncodeRequest {
  StreamHandle stream;
  HeaderBlock* image;
  RowSupplier rows;
  const FileType* type = nullptr;  // the row of the code that is saved
  bool cmyk = false;  // 32 bits are cyan, magenta, yellow, black; the header may not say so
  AppendPlace place = {};
  Options options{};             // as they were when the call began
  Resolution resolution{};       // of the image, more exactly than its header can say
  const Texts* texts = nullptr;  // of the document

  std::int32_t variant() const;
  bool is_safe() const { return options.get(IMG_OPTION_SAFE_SAVING) == 1; }
  bool is_exact() const { return options.get(IMG_OPTION_READING) == 1; }
};
using Encoder = Status (*)(const EncodeRequest& request);

// What an encoder refuses by the look of the image, before it writes anything: a request for which
// this is kOk fails only by what happens to its rows and its stream. The rows are not asked for.
using EncodeCheck = Status (*)(const EncodeRequest& request);

// The first ten bytes of a file, and the stream for the few tests that look further.
struct Probe {
  static constexpr int kBytes = 10;

  std::uint8_t bytes[kBytes];
  StreamHandle stream;
  std::int32_t start = 0;  // where the file begins, for the tests of DETECTION

  constexpr std::uint8_t operator[](int i) const { return bytes[i]; }
  constexpr bool has(std::string_view text, int at = 0) const {
    return std::equal(text.begin(), text.end(), bytes + at,
                      [](char a, std::uint8_t b) { return byte(a) == b; });
  }
};

enum class Supplier : std::uint8_t { plain, transitions };

enum Trait : std::uint8_t {
  kNone = 0,
  kMultiPage = 1,   // saving to an existing file appends a page
  kByName = 2,      // chosen by a file name that ends in `ending`
  kUnreported = 4,  // recognised and decoded, but file type queries have no code for it
  kExtended = 8,    // there with EXTENDED_FORMATS only, and behind all others
  kShort = 16,      // also shorter than a Probe, where zeros stand for what is not there
  kGivesRows = 32,  // read row by row: nothing that takes time is done before the header
  kTakesRows = 64,  // written row by row, also where rows come by themselves
};

// How the pages of a file are asked for.
enum PageQuery : std::uint8_t { kByFileName = 1, kByHandle = 2, kInMemory = 4 };

// Bits 0 to 5 stand for 1, 4, 8, 16, 24 and 32 bits a pixel.
template <class... Depth>
consteval std::uint8_t depths(Depth... depth) {
  int set = 0;
  for (const int bits : {depth...}) {
    set |= bits == 1 ? 1 : bits == 4 ? 2 : bits == 8 ? 4 : bits == 16 ? 8 : bits == 24 ? 16 : 32;
  }
  return byte(set);
}

// Whether anything is ever saved. Where nothing is, rows of the table forget what only saving calls,
// so that the linker leaves the encoders out.
#ifdef TQ_READ_ONLY
inline constexpr bool kSaves = false;
#else
inline constexpr bool kSaves = true;
#endif

template <class Function>
class Forgotten {
 public:
  constexpr Forgotten(Function /*function*/) {}  // NOLINT(*-explicit-*): as the function itself
  constexpr operator Function() const { return nullptr; }  // NOLINT(*-explicit-*)
};
template <class Function>
using ForSaving = std::conditional_t<kSaves, Function, Forgotten<Function>>;

// A row of THE table: a format or one of its variants, how it is recognised, and who codes it.
struct FileType {
  std::int16_t code;
  const char* name;               // for a command line
  const char* title;              // for people
  std::string_view ending = {};   // of the names of such files, and what detection calls them
  std::int16_t variant_of = -1;   // the code of the format that this one is a variant of
  std::int32_t variant = 0;       // tells variants apart: a compression of TIFF, RLE of BMP …
  std::int16_t switched_by = -1;  // the code whose auto-detect switch counts; -1: its own
  bool (*test)(const Probe& probe) = nullptr;  // null: never detected
  // With DETECTION; they may move the stream. Asked before all tests; asked when none has passed; and
  // what a file that passes the test has to pass as well.
  bool (*first_test)(const Probe& probe) = nullptr;
  bool (*last_test)(const Probe& probe) = nullptr;
  bool (*confirms)(const Probe& probe) = nullptr;
  std::string_view more_endings = {};  // between blanks, of names that then choose the code, too
  Status (*find_variant)(StreamHandle stream) = nullptr;  // which one a detected file is
  Decoder decode = nullptr;                               // null: recognised, not decoded
  std::uint8_t read_depths = 0;
  ForSaving<Encoder> encode = nullptr;  // null: not saved
  std::uint8_t write_depths = 0;
  Status (*available)() =
      nullptr;  // whether its module can be loaded: of an encoder, if there is one
  ForSaving<EncodeCheck> can_encode = nullptr;  // null: an image of any kind
  // null: always
  ForSaving<Status (*)(StreamHandle stream, AppendPlace& place)> can_append = nullptr;
  // Copies a file that cannot take a page, unsupported, so that it can; null: there is no way.
  ForSaving<Status (*)(StreamHandle from, StreamHandle to)> make_room = nullptr;
  // A picture that other files can hold as it is coded; and such pictures, in files of this format:
  // unsupported for those that it cannot hold.
  using StoredEncoder = Status (*)(const EncodeRequest& request, const StoredPicture& stored);
  ForSaving<Status (*)(const DecodeRequest& request, StoredPicture& stored)> find_stored = nullptr;
  ForSaving<StoredEncoder> can_store = nullptr, encode_stored = nullptr;
  Status (*count_pages)(StreamHandle stream) = nullptr;  // null: always one page
  // null: the format does not tell
  Status (*find_orientation)(StreamHandle stream, const Options& options) = nullptr;
  std::uint8_t uncounted = 0;  // ways of asking that get 1 all the same
  Supplier supplier = Supplier::plain;
  std::uint8_t traits = kNone;
};

inline std::int32_t EncodeRequest::variant() const {
  return type == nullptr ? 0 : type->variant;
}

}  // namespace tq::formats
