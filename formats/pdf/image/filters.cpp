// Names of filters, abbreviated or not, and their parameters.
#include "formats/pdf/image/filters.h"

namespace tq::pdf::image {
namespace {

using coding::FilterKind;
using objects::File;
using objects::Kind;
using objects::Object;
using objects::Value;

constexpr struct {
  const char *name, *abbreviation;
  FilterKind kind;
} kFilters[] = {{"FlateDecode", "Fl", FilterKind::flate},
                {"LZWDecode", "LZW", FilterKind::lzw},
                {"ASCII85Decode", "A85", FilterKind::ascii85},
                {"ASCIIHexDecode", "AHx", FilterKind::ascii_hex},
                {"RunLengthDecode", "RL", FilterKind::run_length}};

constexpr struct {
  const char *name, *abbreviation;
  PictureCoding coding;
} kPictureCodings[] = {{"CCITTFaxDecode", "CCF", PictureCoding::fax},
                       {"DCTDecode", "DCT", PictureCoding::jpeg},
                       {"JBIG2Decode", "", PictureCoding::jbig2},
                       {"JPXDecode", "", PictureCoding::jpeg2000}};

// A number or truth of a dictionary, which may stand elsewhere.
Status find(File& file, const Value& dictionary, const char* key, Value& value, Object& room) {
  value = dictionary[key];
  return file.resolve(value, room);
}
Status find_integer(File& file, const Value& dictionary, const char* key, std::int32_t& number) {
  Object room;
  Value value;
  TQ_TRY(find(file, dictionary, key, value, room));
  number = value.small_integer(number);
  return kOk;
}
Status find_truth(File& file, const Value& dictionary, const char* key, bool& truth) {
  Object room;
  Value value;
  TQ_TRY(find(file, dictionary, key, value, room));
  truth = value.boolean(truth);
  return kOk;
}

Status read_step(File& file, FilterKind kind, const Value& parameters, coding::FilterStep& step) {
  step.kind = kind;
  if (kind != FilterKind::flate && kind != FilterKind::lzw) return kOk;
  std::int32_t columns = 1, early = 1;
  TQ_TRY(find_integer(file, parameters, "Predictor", step.predictor.predictor));
  TQ_TRY(find_integer(file, parameters, "Colors", step.predictor.samples));
  TQ_TRY(find_integer(file, parameters, "BitsPerComponent", step.predictor.bits));
  TQ_TRY(find_integer(file, parameters, "Columns", columns));
  step.predictor.columns = columns;
  TQ_TRY(find_integer(file, parameters, "EarlyChange", early));
  if (kind == FilterKind::lzw && early == 0) step.kind = FilterKind::lzw_late;
  return kOk;
}

Status read_fax(File& file, const Value& parameters, FaxForm& fax) {
  std::int32_t k = 0;
  TQ_TRY(find_integer(file, parameters, "K", k));
  TQ_TRY(find_integer(file, parameters, "Columns", fax.columns));
  TQ_TRY(find_truth(file, parameters, "BlackIs1", fax.black_is_1));
  fax.coding.end_of_line = false;
  TQ_TRY(find_truth(file, parameters, "EndOfLine", fax.coding.end_of_line));
  TQ_TRY(find_truth(file, parameters, "EncodedByteAlign", fax.coding.byte_aligned));
  fax.coding.scheme = k < 0    ? ccitt::Scheme::group4
                      : k == 0 ? ccitt::Scheme::group3_1d
                               : ccitt::Scheme::group3_2d;
  return kOk;
}

Status add_filter(File& file, const Value& name, const Value& parameters, StreamForm& form) {
  if (form.last != PictureCoding::none) return StatusCode::unsupported;
  for (const auto& filter : kFilters) {
    if (!name.is_name(filter.name) && !name.is_name(filter.abbreviation)) continue;
    if (form.count == std::ssize(form.steps)) return StatusCode::unsupported;
    return read_step(file, filter.kind, parameters, form.steps[form.count++]);
  }
  for (const auto& coding : kPictureCodings) {
    if (!name.is_name(coding.name) && !name.is_name(coding.abbreviation)) continue;
    form.last = coding.coding;
    if (coding.coding == PictureCoding::fax) return read_fax(file, parameters, form.fax);
    if (coding.coding == PictureCoding::jbig2) {
      form.jbig2_globals = parameters["JBIG2Globals"].reference();
      return kOk;
    }
    return find_integer(file, parameters, "ColorTransform", form.jpeg_transform);
  }
  if (!name.is_name("Crypt")) return StatusCode::unsupported;
  Object room;
  Value cipher;
  TQ_TRY(find(file, parameters, "Name", cipher, room));
  const bool plain = cipher.is(Kind::null) || cipher.is_name("Identity");
  return plain ? StatusCode::ok : StatusCode::unsupported;
}

}  // namespace

Status read_form(File& file, const Value& dictionary, bool is_inline, StreamForm& form) {
  form = {};
  Value names = dictionary["Filter"], parameters = dictionary["DecodeParms"];
  if (is_inline && names.is(Kind::null)) names = dictionary["F"];
  if (is_inline && parameters.is(Kind::null)) parameters = dictionary["DP"];
  Object names_room, parameters_room;
  TQ_TRY(file.resolve(names, names_room));
  TQ_TRY(file.resolve(parameters, parameters_room));
  if (names.is(Kind::null)) return kOk;
  if (names.is(Kind::name)) {
    Object room;
    if (parameters.is(Kind::array)) {  // of one, all the same
      objects::Items items = parameters.items();
      parameters = items.next() ? items.value() : Value();
      TQ_TRY(file.resolve(parameters, room));
    }
    return add_filter(file, names, parameters, form);
  }
  // A dictionary that stands for all is the first one's.
  const bool alone = parameters.is(Kind::dictionary);
  objects::Items each = parameters.items();
  bool first = true;
  for (objects::Items items = names.items(); items.next(); first = false) {
    Object name_room, room;
    Value name = items.value(), own;
    if (alone && first) own = parameters;
    if (!alone && each.next()) own = each.value();
    TQ_TRY(file.resolve(name, name_room));
    TQ_TRY(file.resolve(own, room));
    TQ_TRY(add_filter(file, name, own, form));
  }
  return kOk;
}

Status Filters::open(File& file, const Object& stream) {
  StreamForm form;
  TQ_TRY(read_form(file, stream.value(), false, form));
  if (form.last != PictureCoding::none) return StatusCode::unsupported;
  TQ_TRY(source_.open(file, stream));
  TQ_TRY(chain_.open(form.filters()));
  return chain_.start(PieceSource::of(source_));
}

Status Filters::status() const {
  return source_.failed() ? StatusCode::read_failed : chain_.status();
}

}  // namespace tq::pdf::image
