// Photo CD image packs: one picture in up to five sizes. The three small ones are plain; each larger one
// is what it differs from the doubled one below by, in Huffman codes.
#include <array>

#include "coding/bits.h"
#include "formats/codec.h"
#include "formats/simple/simple.h"
#include "io/chunk_reader.h"
#include "io/endian.h"
#include "io/stream_window.h"
#include "pixels/colours.h"
#include "pixels/rows.h"

namespace tq::simple {
namespace {

using pixels::Bytes;
using pixels::Row;

constexpr std::int64_t kSector = 2048;
constexpr int kOrientationAt = 2048 + 1538;

// --- Planes ---

struct Plane {
  std::int32_t width = 0, height = 0;
  RowBuffer<std::uint8_t> samples;

  Status allocate(std::int32_t columns, std::int32_t rows) {
    width = columns;
    height = rows;
    return samples.allocate(std::int64_t{columns} * rows);
  }
  Row row(std::int32_t y) const {
    return samples.pixels().subspan(static_cast<std::size_t>(y) * width,
                                    static_cast<std::size_t>(width));
  }
};

// Row y of a plane that is twice as wide and high; what lies between samples is their mean, the last of
// a row and of a column stand twice.
void doubled_row(const Plane& plane, std::int32_t y, Row out) {
  const Row upper = plane.row(y / 2);
  const Row lower = plane.row(std::min((y + 1) / 2, plane.height - 1));
  for (std::int32_t x = 0; x < plane.width; ++x) {
    const std::int32_t right = std::min(x + 1, plane.width - 1);
    out[2 * x] = byte((upper[x] + lower[x] + 1) >> 1);
    out[2 * x + 1] = byte((upper[x] + upper[right] + lower[x] + lower[right] + 2) >> 2);
  }
}

Status double_plane(Plane& plane) {
  Plane larger;
  TQ_TRY(larger.allocate(2 * plane.width, 2 * plane.height));
  for (std::int32_t y = 0; y < larger.height; ++y) doubled_row(plane, y, larger.row(y));
  std::swap(plane.width, larger.width);
  std::swap(plane.height, larger.height);
  std::swap(plane.samples, larger.samples);
  return kOk;
}

// --- Differences ---

// Codes of up to 16 bits to differences.
class CodeTable {
 public:
  struct Entry {
    std::uint8_t bits;  // 0: of no code
    std::int8_t difference;
  };

  // Behind it `at` is that of the next. bad_image for codes that are too long.
  Status read(StreamWindow& window, std::int64_t& at) {
    constexpr int kEntryBytes = 4, kMostBits = 16;
    TQ_TRY(entries_.allocate(1 << kMostBits));
    const Bytes count = window.at(at++, 1);
    if (count.empty()) return StatusCode::read_failed;
    const int entries = count[0] + 1;
    for (int i = 0; i < entries; ++i, at += kEntryBytes) {
      const Bytes entry = window.at(at, kEntryBytes);
      if (std::ssize(entry) < kEntryBytes) return StatusCode::read_failed;
      const int bits = entry[0] + 1;
      if (bits > kMostBits) return StatusCode::bad_image;
      const int codes = 1 << (kMostBits - bits);
      const int first = load_be16(&entry[1]) & -codes;
      const Entry meant{byte(bits), static_cast<std::int8_t>(entry[3])};
      std::fill_n(entries_.data() + first, codes, meant);
    }
    return kOk;
  }

  Entry find(std::uint32_t next) const { return entries_[static_cast<std::ptrdiff_t>(next)]; }

 private:
  RowBuffer<Entry> entries_;
};

enum PlaneNumber : int { kLuminance = 0, kNoMore = 1, kFirstColour = 2, kSecondColour = 3 };

struct Mark {
  int plane = 0, row = 0;
};

// The bits of coded rows.
class CodedRows {
 public:
  Status open(StreamHandle stream, std::int64_t at) {
    constexpr std::int64_t kChunk = 32768;
    at_ = at;
    used_ = 0;
    input_.close();  // leaves the stream where it was
    TQ_TRY(seek_to(stream, at));
    TQ_TRY(input_.open(stream, kChunk));
    pieces_ = ReaderPieces(input_);
    bits_ = Bits(tq::PieceSource::of(pieces_));
    return kOk;
  }

  // Looks for the next mark through so many bits at most.
  bool find_mark(Mark& mark, std::int64_t most = INT64_MAX) {
    constexpr std::uint32_t kMark = 0xFFFFFE;
    constexpr int kMarkBits = 24, kFieldBits = 16;
    std::int64_t looked = 0;
    while (looked < most && has(kMarkBits + kFieldBits)) {
      if (bits_.peek(kMarkBits) == kMark) {
        skip(kMarkBits);
        bits_.fill();
        const std::uint32_t fields = bits_.peek(kFieldBits);
        skip(kFieldBits);
        mark = {static_cast<int>(fields >> 14), static_cast<int>(fields >> 1 & 0x1FFF)};
        return true;
      }
      // It begins behind the last 0 among what would have to be ones, or at the next bit.
      const int ones = std::countr_one(bits_.peek(kMarkBits - 1));
      const int past = std::max(kMarkBits - 1 - ones, 1);
      skip(past);
      looked += past;
    }
    return false;
  }

  // Adds differences to a row, up to a code that there is not.
  void add(const CodeTable& table, Row row) {
    constexpr int kMostBits = 16;
    for (std::uint8_t& sample : row) {
      bits_.fill();
      const CodeTable::Entry entry = table.find(bits_.peek(kMostBits));
      if (entry.bits == 0 || bits_.at_end()) return;
      skip(entry.bits);
      sample = byte(std::clamp(sample + entry.difference, 0, 255));
    }
  }

  bool ended() { return !has(1); }
  std::int64_t position() const { return at_ + used_ / 8; }

 private:
  using Bits = coding::BitReader<coding::BitOrder::msb_first>;

  bool has(int bits) {
    bits_.fill();
    return bits_.has(bits);
  }
  void skip(int bits) {
    bits_.skip(bits);
    used_ += bits;
  }

  ChunkReader input_;
  ReaderPieces pieces_{input_};
  Bits bits_;
  std::int64_t at_ = 0, used_ = 0;  // where it began, and bits since
};

// --- The picture ---

// From the largest to the smallest.
struct Size {
  std::int32_t width, height;
  int sector;  // where the plain ones are
};
constexpr Size kSizes[] = {
    {3072, 2048, 0}, {1536, 1024, 388}, {768, 512, 96}, {384, 256, 23}, {192, 128, 4}};
constexpr int kAll = 5, kPlainSizes = 3;
constexpr int kPlanes = 3;

class ImagePack {
 public:
  // Finds out how large the largest picture is. bad_image for another kind of file.
  Status open(StreamHandle stream, std::int64_t start) {
    constexpr std::string_view kName = "PCD_";
    stream_ = stream;
    start_ = start;
    TQ_TRY(window_.open(stream, kSector));
    const Bytes orientation = window_.at(start + kOrientationAt, 1);
    if (orientation.empty()) return StatusCode::read_failed;
    orientation_ = orientation[0] & 3;
    const Bytes name = window_.at(start + kSector, std::ssize(kName));
    if (!std::equal(name.begin(), name.end(), kName.begin(), kName.end(),
                    [](std::uint8_t a, char b) { return a == byte(b); })) {
      return StatusCode::bad_image;
    }
    return find_sizes();
  }

  int count() const { return kAll - largest_; }
  // As TIFF counts. The file says how often to turn it counter-clockwise.
  int orientation() const {
    constexpr int kOrientations[] = {1, 8, 3, 6};
    return kOrientations[orientation_];
  }

  Status decode(int page, const formats::RowSink& sink) {
    const int wanted = largest_ + page;
    const Size& size = kSizes[wanted];
    HeaderBlock image = dib_header(size.width, size.height, 24);
    sink.orientation(orientation());
    TQ_TRY(sink.header(image));
    TQ_TRY(read_plain(std::max(wanted, kAll - kPlainSizes)));
    bool whole = rows_ == planes_[0].height;
    for (int larger = kAll - kPlainSizes - 1; larger >= wanted; --larger) {
      for (Plane& plane : planes_) TQ_TRY(double_plane(plane));
      TQ_TRY(add_differences(larger, whole));
      rows_ = planes_[0].height;
    }
    if (!whole) sink.damaged(StatusCode::read_failed);
    return deliver(sink);
  }

 private:
  static constexpr std::int64_t kFarthestMark = 65536 * 8;  // bits

  int planes_at(int size) const { return size == 0 ? kPlanes : 1; }

  // Reads the tables of a size and goes to its first mark; a size that has none is not there.
  Status begin(int size, bool& there) {
    there = false;
    std::int64_t at = starts_[size];
    for (int i = 0; i < planes_at(size); ++i) {
      const Status table = tables_[i].read(window_, at);
      if (table == StatusCode::out_of_memory) return table;
      if (table.failed()) return kOk;
    }
    TQ_TRY(rows_of_size_.open(stream_, at));
    there = rows_of_size_.find_mark(mark_, kFarthestMark);
    return kOk;
  }

  Status find_sizes() {
    constexpr std::int64_t kBetween = 13;  // sectors
    largest_ = kAll - kPlainSizes;
    starts_[1] = start_ + kSizes[1].sector * kSector;
    bool there = false;
    TQ_TRY(begin(1, there));
    if (!there) return kOk;
    largest_ = 1;
    do {
    } while (!is_last(1) && rows_of_size_.find_mark(mark_));
    if (!is_last(1)) return kOk;
    const std::int64_t sector = (rows_of_size_.position() - 1 - start_) / kSector;
    starts_[0] = start_ + (sector + kBetween) * kSector;
    TQ_TRY(begin(0, there));
    if (there) largest_ = 0;
    return kOk;
  }

  bool is_last(int size) const {
    return mark_.plane == kNoMore || mark_.row >= kSizes[size].height;
  }

  Status add_differences(int size, bool& whole) {
    bool there = false;
    TQ_TRY(begin(size, there));
    std::int64_t rows = 0;
    while (there && !is_last(size)) {
      const int plane = mark_.plane == kLuminance ? 0 : mark_.plane - kFirstColour + 1;
      const int row = plane == 0 ? mark_.row : mark_.row / 2;
      if (plane < planes_at(size)) {
        rows_of_size_.add(tables_[plane], planes_[plane].row(row));
        ++rows;
      }
      there = rows_of_size_.find_mark(mark_);
    }
    const std::int64_t all = kSizes[size].height * (size == 0 ? 2 : 1);
    whole = whole && (there || rows >= all);
    return kOk;
  }

  // Two rows of brightness, one of each colour.
  Status read_plain(int size) {
    const auto [width, height, sector] = kSizes[size];
    TQ_TRY(planes_[0].allocate(width, height));
    TQ_TRY(planes_[1].allocate(width / 2, height / 2));
    TQ_TRY(planes_[2].allocate(width / 2, height / 2));
    std::int64_t at = start_ + sector * kSector;
    rows_ = 0;
    for (std::int32_t y = 0; y < height; y += 2) {
      const Row rows[] = {planes_[0].row(y), planes_[0].row(y + 1), planes_[1].row(y / 2),
                          planes_[2].row(y / 2)};
      for (const Row row : rows) {
        const Bytes there = window_.at(at, std::ssize(row));
        if (there.size() < row.size()) return kOk;
        std::ranges::copy(there, row.begin());
        at += std::ssize(row);
      }
      rows_ += 2;
    }
    return kOk;
  }

  Status deliver(const formats::RowSink& sink) {
    const std::int32_t width = planes_[0].width;
    RowBuffer<std::uint8_t> first, second, out;
    TQ_TRY(first.allocate(width));
    TQ_TRY(second.allocate(width));
    TQ_TRY(out.allocate(row_bytes(width, 24)));
    for (std::int32_t y = 0; y < rows_; ++y) {
      const Row luminance = planes_[0].row(y);
      doubled_row(planes_[1], y, first.pixels());
      doubled_row(planes_[2], y, second.pixels());
      for (std::int32_t x = 0; x < width; ++x) {
        const Rgb colour = pixels::colour_of_photo_ycc(luminance[x], first[x], second[x]);
        out[3 * x] = colour.blue;
        out[3 * x + 1] = colour.green;
        out[3 * x + 2] = colour.red;
      }
      TQ_TRY(sink.row(out.pixels(), y));
    }
    return kOk;
  }

  StreamHandle stream_{-1};
  std::int64_t start_ = 0;
  StreamWindow window_;
  int orientation_ = 0, largest_ = 0;
  std::array<std::int64_t, 2> starts_{};  // of the two sizes of differences
  std::array<CodeTable, kPlanes> tables_;
  CodedRows rows_of_size_;
  Mark mark_;
  std::array<Plane, kPlanes> planes_;
  std::int32_t rows_ = 0;  // that there are
};

}  // namespace

Status decode_photo_cd(const formats::DecodeRequest& request) {
  ImagePack pack;
  TQ_TRY(pack.open(request.stream, request.start()));
  const std::int32_t page = request.has_page() ? request.page : 0;
  if (page >= pack.count()) return StatusCode::page_past_end;
  return pack.decode(page, request.sink);
}

Status count_photo_cd_pages(StreamHandle stream) {
  ImagePack pack;
  TQ_TRY(pack.open(stream, position(stream)));
  return Status::from_raw(pack.count());
}

Status find_photo_cd_orientation(StreamHandle stream, const Options& /*options*/) {
  ImagePack pack;
  TQ_TRY(pack.open(stream, position(stream)));
  return Status::from_raw(pack.orientation());
}

}  // namespace tq::simple
