// Data elements (PS3.5, section 7) of all transfer syntaxes.
#include "formats/dicom/data_set.h"

#include <algorithm>
#include <cmath>
#include <string_view>
#include <utility>

#include "io/endian.h"

namespace tq::dicom {
namespace {

using pixels::Bytes;

constexpr std::int64_t kPreamble = 128;
constexpr std::string_view kMark = "DICM";
constexpr int kMostDepth = 32;  // of sequences
constexpr double kLargestNumber = 1e30;

enum Tag : std::uint32_t {
  kTransferSyntax = 0x00020010,
  kPixelSpacing = 0x00182010,  // nominal, of what was scanned
  kSamples = 0x00280002,
  kPhotometric = 0x00280004,
  kPlanarConfiguration = 0x00280006,
  kFrames = 0x00280008,
  kRows = 0x00280010,
  kColumns = 0x00280011,
  kAllocated = 0x00280100,
  kStored = 0x00280101,
  kHighBit = 0x00280102,
  kRepresentation = 0x00280103,
  kWindowCentre = 0x00281050,
  kWindowWidth = 0x00281051,
  kIntercept = 0x00281052,
  kSlope = 0x00281053,
  kRedDescriptor = 0x00281101,
  kRedTable = 0x00281201,
  kPixelData = 0x7FE00010,
  kItem = 0xFFFEE000,
  kItemEnd = 0xFFFEE00D,
  kSequenceEnd = 0xFFFEE0DD,
};

// PS3.5, annex A: what follows the common root of the names.
constexpr std::string_view kSyntaxRoot = "1.2.840.10008.1.2";
constexpr struct {
  std::string_view name;
  Coding coding;
  bool explicit_types, big_endian;
} kSyntaxes[] = {
    {"", Coding::plain, false, false},         {".1", Coding::plain, true, false},
    {".2", Coding::plain, true, true},         {".1.99", Coding::deflated, true, false},
    {".5", Coding::rle, true, false},          {".4.50", Coding::jpeg, true, false},
    {".4.51", Coding::jpeg, true, false},      {".4.90", Coding::jpeg_2000, true, false},
    {".4.91", Coding::jpeg_2000, true, false},
};

constexpr struct {
  std::string_view name;
  Photometric photometric;
} kPhotometrics[] = {
    {"MONOCHROME1", Photometric::white_is_zero}, {"MONOCHROME2", Photometric::black_is_zero},
    {"PALETTE COLOR", Photometric::palette},     {"RGB", Photometric::rgb},
    {"YBR_FULL", Photometric::ybr_full},         {"YBR_FULL_422", Photometric::ybr_full_422},
};

constexpr int type_of(char first, char second) {
  return byte(first) << 8 | byte(second);
}
// Explicit types whose length is one of 32 bits.
bool is_long(int type) {
  constexpr const char* kLong[] = {"OB", "OW", "OF", "OD", "OL", "OV", "UC",
                                   "UN", "UR", "UT", "SQ", "SV", "UV"};
  return std::ranges::any_of(kLong,
                             [&](const char* name) { return type_of(name[0], name[1]) == type; });
}
bool is_type(const std::uint8_t* at) {
  return at[0] >= 'A' && at[0] <= 'Z' && at[1] >= 'A' && at[1] <= 'Z';
}

// The first of several texts, without what fills it up.
std::string_view first_text(std::string_view text) {
  text.remove_suffix(text.size() -
                     std::min(text.find_first_of(std::string_view("\\\0", 2)), text.size()));
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  text.remove_suffix(text.size() - (text.find_last_not_of(' ') + 1));
  return text;
}

// Sign, digits, point, exponent; the same on every system and in every language.
bool read_number(std::string_view text, double& number) {
  text = first_text(text);
  const auto next_is = [&](std::string_view any) {
    return !text.empty() && any.find(text[0]) != std::string_view::npos;
  };
  const auto take_sign = [&] {
    const bool minus = next_is("-");
    if (next_is("+-")) text.remove_prefix(1);
    return minus;
  };
  double value = 0;
  int exponent = 0, digits = 0;
  const bool minus = take_sign();
  for (bool behind_point = false; next_is(behind_point ? "0123456789" : "0123456789.");) {
    if (text[0] == '.') {
      behind_point = true;
    } else {
      value = value * 10 + (text[0] - '0');
      exponent -= behind_point ? 1 : 0;
      ++digits;
    }
    text.remove_prefix(1);
  }
  if (digits == 0) return false;
  if (next_is("eE")) {
    text.remove_prefix(1);
    const bool divides = take_sign();
    int written = 0;
    for (; next_is("0123456789") && written < 1000; text.remove_prefix(1)) {
      written = written * 10 + (text[0] - '0');
    }
    exponent += divides ? -written : written;
  }
  double power = 1;
  for (int i = std::min(std::abs(exponent), 300); i > 0; --i) power *= 10;
  value = exponent < 0 ? value / power : value * power;
  if (!(value <= kLargestNumber)) return false;
  number = minus ? -value : value;
  return true;
}

std::int32_t dpi_of(double millimetres) {
  const double dpi = millimetres > 0 ? std::floor(25.4 / millimetres + 0.5) : 0;
  return dpi <= 0xFFFF ? static_cast<std::int32_t>(dpi) : 0;
}

struct Element {
  std::uint32_t tag = 0, length = 0;
  int type = 0;  // two letters; 0 where there are none
};

class Reader {
 public:
  Reader(Source& source, std::int64_t start, DataSet& set)
      : source_(source), at_(start), set_(set) {}

  Status read();

 private:
  Status find_start();
  Status leave_meta(const std::uint8_t* header);
  Status next(Element& element);
  Status take(const Element& element);
  Status take_table(DataSet::Table& table, std::uint32_t length);
  Status skip_sequence(bool is_explicit);

  int word(const std::uint8_t* at) const { return set_.big_endian ? load_be16(at) : load_le16(at); }
  std::uint32_t long_word(const std::uint8_t* at) const {
    return set_.big_endian ? load_be32(at) : load_le32(at);
  }

  Source& source_;
  std::int64_t at_;  // where the next bytes are
  DataSet& set_;
  bool in_meta_ = true;
  std::array<char, 66> syntax_{};
};

Status Reader::find_start() {
  std::array<std::uint8_t, kPreamble + 4> bytes{};
  const auto has_mark = [&](std::int64_t at) {
    return std::equal(kMark.begin(), kMark.end(), bytes.begin() + at,
                      [](char letter, std::uint8_t value) { return byte(letter) == value; });
  };
  const std::ptrdiff_t count = source_.read_at(at_, bytes);
  if (count == std::ssize(bytes) && has_mark(kPreamble)) {
    at_ += std::ssize(bytes);
    set_.explicit_types = true;
    return kOk;
  }
  const int start = has_mark(0) ? 4 : 0;
  at_ += start;
  set_.explicit_types = is_type(&bytes[start + 4]);
  return count >= start + 8 ? StatusCode::ok : StatusCode::read_failed;
}

// `header` is that of the first element behind.
Status Reader::leave_meta(const std::uint8_t* header) {
  in_meta_ = false;
  std::string_view name = first_text({syntax_.data(), syntax_.size()});
  if (name.empty()) {
    set_.explicit_types = is_type(header + 4);
    set_.big_endian = load_be16(header) == 8;  // the group that data sets begin with
    return kOk;
  }
  if (!name.starts_with(kSyntaxRoot)) return StatusCode::unsupported;
  name.remove_prefix(kSyntaxRoot.size());
  for (const auto& known : kSyntaxes) {
    if (known.name != name) continue;
    if (known.coding == Coding::jpeg_2000 && !set_.knows_jpeg_2000) break;
    set_.coding = known.coding;
    set_.explicit_types = known.explicit_types;
    set_.big_endian = known.big_endian;
    if (known.coding == Coding::deflated) return source_.inflate_from(at_);
    // Some writers name one form of their elements and use the other.
    set_.explicit_types = is_type(header + 4);
    return kOk;
  }
  return StatusCode::unsupported;
}

// Leaves the position behind the header.
Status Reader::next(Element& element) {
  std::array<std::uint8_t, 12> header{};
  const std::span<std::uint8_t> bytes(header);
  if (source_.read_at(at_, bytes.first(8)) < 8) return StatusCode::read_failed;
  if (in_meta_ && load_le16(header.data()) != 2) {
    TQ_TRY(leave_meta(header.data()));
    if (source_.read_at(at_, bytes.first(8)) < 8) return StatusCode::read_failed;
  }
  element.tag = static_cast<std::uint32_t>(word(&header[0])) << 16 | word(&header[2]);
  element.type = 0;
  element.length = long_word(&header[4]);
  at_ += 8;
  if (!set_.explicit_types || element.tag >> 16 == kItem >> 16) return kOk;
  if (!is_type(&header[4])) return StatusCode::bad_image;
  element.type = header[4] << 8 | header[5];
  element.length = word(&header[6]);
  if (!is_long(element.type)) return kOk;
  if (source_.read_at(at_, bytes.subspan(8, 4)) < 4) return StatusCode::read_failed;
  element.length = long_word(&header[8]);
  at_ += 4;
  return kOk;
}

// To its end, items in it and all. Sequences of an unknown type hold no types.
Status Reader::skip_sequence(bool is_explicit) {
  const bool outside = std::exchange(set_.explicit_types, is_explicit);
  for (int depth = 1; depth > 0;) {
    Element element;
    TQ_TRY(next(element));
    if (element.tag == kItemEnd || element.tag == kSequenceEnd) {
      --depth;
    } else if (element.length != DataSet::kUndefined) {
      at_ += element.length;
    } else if (++depth > kMostDepth) {
      return StatusCode::bad_image;
    }
  }
  set_.explicit_types = outside;
  return kOk;
}

Status Reader::take_table(DataSet::Table& table, std::uint32_t length) {
  const std::uint32_t entries = static_cast<std::uint32_t>(table.entries);
  const bool in_bytes = table.bits <= 8 && length < 2 * entries;
  const std::uint32_t wanted = std::min(length, in_bytes ? entries : 2 * entries);
  TQ_TRY(table.levels.allocate(wanted));
  if (source_.read_at(at_, table.levels.pixels()) < std::int64_t{wanted}) {
    return StatusCode::read_failed;
  }
  if (in_bytes) return kOk;
  // Of 16-bit levels the high byte counts; levels of 8 bits may stand in words as well.
  const bool first_byte = set_.big_endian == (table.bits > 8);
  for (std::uint32_t i = 0; i < wanted / 2; ++i) {
    table.levels[i] = table.levels[2 * i + (first_byte ? 0 : 1)];
  }
  std::fill(table.levels.pixels().begin() + wanted / 2, table.levels.pixels().end(),
            std::uint8_t{0});
  return kOk;
}

// Of the elements that count the first bytes are enough, but for tables.
Status Reader::take(const Element& element) {
  const bool is_table = element.tag >= kRedTable && element.tag < kRedTable + 3;
  if (is_table) return take_table(set_.tables[element.tag - kRedTable], element.length);
  std::array<std::uint8_t, 66> bytes{};
  const auto length = std::min<std::uint32_t>(element.length, bytes.size() - 2);
  const std::uint32_t group = element.tag >> 16;
  if (group != 0x0002 && group != 0x0018 && group != 0x0028) return kOk;
  if (source_.read_at(at_, std::span(bytes).first(length)) < std::int64_t{length}) {
    return StatusCode::read_failed;
  }
  std::string_view text(reinterpret_cast<const char*>(bytes.data()), length);
  const int number = word(bytes.data());
  double value = 0;
  switch (element.tag) {
    case kTransferSyntax:
      std::copy_n(text.begin(), text.size(), syntax_.begin());
      break;
    case kPixelSpacing:
      if (read_number(text, value)) set_.y_dpi = dpi_of(value);
      if (const std::size_t split = text.find('\\'); split < text.size()) {
        text.remove_prefix(split + 1);
        if (read_number(text, value)) set_.x_dpi = dpi_of(value);
      }
      break;
    case kSamples:
      set_.samples = number;
      break;
    case kPhotometric:
      set_.has_photometric = true;
      for (const auto& known : kPhotometrics) {
        if (known.name == first_text(text)) set_.photometric = known.photometric;
      }
      break;
    case kPlanarConfiguration:
      set_.planes_apart = number == 1;
      break;
    case kFrames:
      if (read_number(text, value)) {
        set_.frames = static_cast<std::int32_t>(std::clamp(value, 1.0, 2147483647.0));
      }
      break;
    case kRows:
      set_.rows = number;
      break;
    case kColumns:
      set_.columns = number;
      break;
    case kAllocated:
      set_.allocated = number;
      break;
    case kStored:
      set_.stored = number;
      break;
    case kHighBit:
      set_.high_bit = number;
      break;
    case kRepresentation:
      set_.is_signed = number == 1;
      break;
    case kWindowCentre:
      set_.has_centre = read_number(text, set_.centre);
      break;
    case kWindowWidth:
      set_.has_width = read_number(text, set_.width);
      break;
    case kIntercept:
      (void)read_number(text, set_.intercept);
      break;
    case kSlope:
      (void)read_number(text, set_.slope);
      break;
    case kRedDescriptor:
    case kRedDescriptor + 1:
    case kRedDescriptor + 2: {
      DataSet::Table& table = set_.tables[element.tag - kRedDescriptor];
      table.entries = number == 0 ? 65536 : number;
      table.first = set_.is_signed ? static_cast<std::int16_t>(word(&bytes[2])) : word(&bytes[2]);
      table.bits = word(&bytes[4]);
      break;
    }
    default:
      break;
  }
  return kOk;
}

Status Reader::read() {
  TQ_TRY(find_start());
  for (;;) {
    Element element;
    TQ_TRY(next(element));
    if (element.tag == kPixelData) {
      set_.pixels_at = at_;
      set_.pixel_bytes = element.length;
      set_.in_words = element.type == type_of('O', 'W');
      return kOk;
    }
    if (element.length == DataSet::kUndefined) {
      TQ_TRY(skip_sequence(set_.explicit_types && element.type != type_of('U', 'N')));
      continue;
    }
    TQ_TRY(take(element));
    at_ += element.length;
  }
}

// What is left out gets its usual value.
Status check(DataSet& set) {
  const bool grey_or_palette = set.samples == 1;
  if (!set.has_photometric) {
    set.photometric = grey_or_palette ? Photometric::black_is_zero : Photometric::rgb;
  }
  if (set.rows == 0 || set.columns == 0 || set.allocated == 0) return StatusCode::bad_image;
  if (set.stored == 0) set.stored = set.allocated;
  if (set.high_bit < 0) set.high_bit = set.stored - 1;
  const int allocated = set.allocated;
  if (allocated != 1 && allocated != 8 && allocated != 16 && allocated != 32) {
    return StatusCode::unsupported;
  }
  if (set.high_bit >= allocated || set.shift() < 0) return StatusCode::bad_image;
  const bool is_stream = set.coding == Coding::jpeg || set.coding == Coding::jpeg_2000;
  const bool encapsulated = set.coding == Coding::rle || is_stream;
  if (encapsulated != (set.pixel_bytes == DataSet::kUndefined)) return StatusCode::bad_image;
  const bool lacks_table =
      std::ranges::any_of(set.tables, [](const auto& table) { return table.entries == 0; });
  if (set.photometric == Photometric::palette && lacks_table) return StatusCode::bad_image;
  if (is_stream) return kOk;  // which knows

  if (set.photometric == Photometric::other) return StatusCode::unsupported;
  if (set.samples != (set.photometric >= Photometric::rgb ? 3 : 1)) return StatusCode::bad_image;
  const bool halved = set.photometric == Photometric::ybr_full_422;
  if (halved && (allocated != 8 || set.coding == Coding::rle)) return StatusCode::unsupported;
  if (set.coding == Coding::rle && allocated == 1) return StatusCode::unsupported;
  const bool levels = set.photometric <= Photometric::black_is_zero;
  return !levels && (allocated == 1 || allocated == 32) ? StatusCode::unsupported : StatusCode::ok;
}

}  // namespace

Status read_data_set(Source& source, std::int64_t start, DataSet& set) {
  const Status read = Reader(source, start, set).read();
  TQ_TRY(source.status());
  TQ_TRY(read);
  return check(set);
}

}  // namespace tq::dicom
