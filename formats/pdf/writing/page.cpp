// Objects first, then a section that finds them, and last of all the offset by which it is found: from
// there on the page counts.
#include "formats/pdf/writing/page.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "formats/fax.h"
#include "formats/pdf/document.h"
#include "formats/pdf/pdf.h"
#include "formats/pdf/writing/picture.h"
#include "formats/pdf/writing/place.h"

namespace tq::pdf::writing {
namespace {

// The first object of a new document, before those of its place.
constexpr Reference kInformation{1, 0};
constexpr std::string_view kNewTrailer = "<</Info 1 0 R>>";
constexpr std::int32_t kHeaderVersion = 14;  // 1.4

class PageWriter {
 public:
  PageWriter(StreamHandle stream, bool safe, const Page& page, Place& place)
      : stream_(stream), safe_(safe), page_(page), place_(place), start_(place.end) {}

  Status open();
  Status write();

 private:
  Status begin(Reference object);
  Status write_start();
  Status write_image(Reference image);
  Status write_contents(Reference contents);
  Status write_page_object(Reference image, Reference contents);
  Status write_node(const Node& node, Reference parent);
  Status write_changed(const Copied& object, std::span<const std::string_view> without);
  Status write_tree();
  Status write_catalog();
  Status write_section();

  // Where in the stream the next byte goes. No offset reaches beyond 2 GiB: status() then fails.
  std::int64_t position() const { return start_ + out_.count(); }
  Status status() const {
    return position() > INT32_MAX ? StatusCode::write_failed : out_.status();
  }

  StreamHandle stream_;
  bool safe_;
  const Page& page_;
  Place& place_;
  StreamWriter out_;
  std::int64_t start_;  // where its bytes go, without those that went past it
};

Status PageWriter::open() {
  TQ_TRY(out_.open(stream_, formats::kFaxChunk));
  if (!place_.is_new() && safe_) {
    // Other programs find a document by its end. A caller's stream keeps what is behind it.
    cut_file(stream_, place_.end);
    const std::int32_t bytes = stream_size(stream_);
    if (bytes < place_.end) return StatusCode::write_failed;
    start_ = bytes;
  }
  std::uint8_t last = '\n';
  if (!place_.is_new()) {
    const std::int64_t behind = start_ - 1;
    if (go_to(stream_, behind) != behind || read_fully(stream_, std::span(&last, 1)) != 1) {
      return StatusCode::read_failed;
    }
  }
  const auto start = static_cast<std::int32_t>(start_);
  const std::int32_t at = seek(stream_, start, Origin::start);
  // Pages must not be written over what is there. Streams that cannot seek hold nothing.
  const bool there = at == start || (place_.is_new() && tq::position(stream_) < 0);
  if (!there) return StatusCode::write_failed;
  if (last != '\n' && last != '\r') out_.put8('\n');
  return kOk;
}

Status PageWriter::begin(Reference object) {
  TQ_TRY(status());
  TQ_TRY(place_.taken_over.add(
      {object.number, static_cast<std::int32_t>(position()), object.generation}));
  out_.print("%d %d obj\n", object.number, object.generation);
  return kOk;
}

// The second line tells other programs that there are bytes above 127.
Status PageWriter::write_start() {
  if (!place_.is_new()) return kOk;
  out_.put("%PDF-1.4\n%\xE2\xE3\xCF\xD3\n");
  place_.trailer = objects::Value(objects::Kind::dictionary, kNewTrailer);
  TQ_TRY(begin(kInformation));
  put_information(out_, page_.texts);
  out_.put("endobj\n");
  return status();
}

Status PageWriter::write_image(Reference image) {
  const Reference length = page_.bytes < 0 ? place_.new_object() : Reference{};
  TQ_TRY(begin(image));
  out_.put("<<");
  put_form(out_, page_.form);
  if (page_.bytes < 0) {
    out_.print("/Length %d 0 R>>\nstream\n", length.number);
  } else {
    out_.print("/Length %d>>\nstream\n", static_cast<int>(page_.bytes));
  }
  TQ_TRY(status());
  const std::int64_t start = position();
  std::int64_t beside = 0;
  TQ_TRY(page_.write_data(page_.context, page_.form, out_, beside));
  start_ += beside;
  TQ_TRY(status());
  const auto bytes = static_cast<std::int32_t>(position() - start);
  if (page_.bytes >= 0 && bytes != page_.bytes) return StatusCode::read_failed;
  out_.put("\nendstream\nendobj\n");
  if (page_.bytes >= 0) return status();
  TQ_TRY(begin(length));
  out_.print("%d\nendobj\n", bytes);
  return status();
}

// A viewer that turns the page turns it after this.
Status PageWriter::write_contents(Reference contents) {
  const Layout& layout = page_.layout;
  const bool lies = layout.rotation() % 180 != 0;  // what is shown upright stands on its side
  const std::int64_t x = lies ? layout.y : layout.x, y = lies ? layout.x : layout.y;
  const std::int64_t w = lies ? layout.picture.height : layout.picture.width;
  const std::int64_t h = lies ? layout.picture.width : layout.picture.height;
  // The mirrored orientations; those that are only turned are the viewer's.
  std::array<std::int64_t, 6> matrix{w, 0, 0, h, x, y};
  switch (layout.orientation) {
    case 2:
      matrix = {-w, 0, 0, h, x + w, y};
      break;
    case 4:
      matrix = {w, 0, 0, -h, x, y + h};
      break;
    case 5:
      matrix = {0, -h, -w, 0, x + w, y + h};
      break;
    case 7:
      matrix = {0, h, w, 0, x, y};
      break;
    default:
      break;
  }
  TQ_TRY(begin(contents));
  std::array<char, 256> text;
  char* end = text.data();
  const auto add = [&](std::string_view part) { end = std::copy(part.begin(), part.end(), end); };
  add("q ");
  for (const std::int64_t value : matrix) {
    add(LengthText(value, layout.user_unit).text());
    add(" ");
  }
  add("cm /Im0 Do Q");
  const auto length = static_cast<std::size_t>(end - text.data());
  out_.print("<</Length %d>>\nstream\n", static_cast<int>(length));
  out_.put(std::string_view(text.data(), length));
  out_.put("\nendstream\nendobj\n");
  return status();
}

Status PageWriter::write_page_object(Reference image, Reference contents) {
  const Layout& layout = page_.layout;
  const bool lies = layout.rotation() % 180 != 0;
  TQ_TRY(begin(place_.page_reference));
  out_.print("<</Type/Page/Parent %d 0 R/MediaBox[0 0 ", place_.leaf().number);
  out_.put(LengthText(lies ? layout.page.height : layout.page.width, layout.user_unit).text());
  out_.put8(' ');
  out_.put(LengthText(lies ? layout.page.width : layout.page.height, layout.user_unit).text());
  out_.put8(']');
  if (layout.user_unit != 1) out_.print("/UserUnit %d", static_cast<int>(layout.user_unit));
  if (layout.rotation() != 0) out_.print("/Rotate %d", layout.rotation());
  out_.print("/Resources<</XObject<</Im0 %d 0 R>>>>/Contents %d 0 R>>\nendobj\n", image.number,
             contents.number);
  return status();
}

Status PageWriter::write_node(const Node& node, Reference parent) {
  TQ_TRY(begin(node.reference));
  out_.put("<</Type/Pages");
  if (parent.number != 0) out_.print("/Parent %d %d R", parent.number, parent.generation);
  out_.print("/Count %d/Kids[", node.count);
  for (int i = 0; i < node.kids; ++i) {
    out_.print(i == 0 ? "%d %d R" : " %d %d R", node.kid[i].number, node.kid[i].generation);
  }
  out_.put("]>>\nendobj\n");
  return status();
}

// The object as it was, but for the entries of some keys, which are given anew.
Status PageWriter::write_changed(const Copied& object, std::span<const std::string_view> without) {
  TQ_TRY(begin(object.reference));
  out_.put("<<");
  for (objects::Entries entries = object.value.entries(); entries.next();) {
    const bool dropped = std::any_of(without.begin(), without.end(), [&](std::string_view key) {
      return entries.key().is_name(key);
    });
    if (dropped) continue;
    out_.put(entries.key().text());
    out_.put8(' ');
    out_.put(entries.value().text());
    out_.put8('\n');
  }
  return status();
}

Status PageWriter::write_tree() {
  const Reference top = place_.nodes[0].reference;
  for (int level = place_.chain.levels - 1; level >= 0; --level) {
    const Reference parent = level > 0 ? place_.nodes[level - 1].reference : Reference{};
    TQ_TRY(write_node(place_.nodes[level], parent));
  }
  if (place_.full_top.kids > 0) TQ_TRY(write_node(place_.full_top, top));
  if (!place_.other_tree.value.is(objects::Kind::null)) {
    constexpr std::string_view kParent[] = {"Parent"};
    TQ_TRY(write_changed(place_.other_tree, kParent));
    out_.print("/Parent %d %d R>>\nendobj\n", top.number, top.generation);
  }
  return write_catalog();
}

Status PageWriter::write_catalog() {
  if (!place_.catalog_changes) return status();
  if (place_.catalog.value.is(objects::Kind::null)) {
    TQ_TRY(begin(place_.catalog.reference));
    out_.put("<</Type/Catalog");
  } else {
    constexpr std::string_view kGiven[] = {"Pages", "Version"};
    TQ_TRY(write_changed(place_.catalog, kGiven));
  }
  const std::int32_t version = place_.chain.version;
  if (version > kHeaderVersion) out_.print("/Version/%d.%d", version / 10, version % 10);
  const Reference top = place_.nodes[0].reference;
  out_.print("/Pages %d %d R>>\nendobj\n", top.number, top.generation);
  return status();
}

Status PageWriter::write_section() {
  const std::int64_t at = position();
  TQ_TRY(status());
  SectionToWrite section{.chain = place_.chain,
                         .previous = place_.previous,
                         .catalog = place_.catalog.reference,
                         .old_trailer = place_.trailer};
  section.chain.self = static_cast<std::int32_t>(at);
  if (place_.streams) {
    const Reference own = place_.new_object();
    section.stream_number = own.number;
    TQ_TRY(place_.taken_over.add({own.number, section.chain.self, 0}));
  }
  section.size = place_.size();
  place_.taken_over.sort();
  put_section(out_, section, place_.taken_over.entries());
  TQ_TRY(status());
  if (safe_) {  // what comes next makes it a page
    TQ_TRY(out_.flush());
    TQ_TRY(flush_to_disk(stream_));
  }
  out_.print("startxref\n%d\n%%%%EOF\n", section.chain.self);
  TQ_TRY(status());
  return out_.flush();
}

Status PageWriter::write() {
  TQ_TRY(open());
  TQ_TRY(place_.add_page(stream_, page_.version));
  TQ_TRY(write_start());
  const Reference image = place_.new_object(), contents = place_.new_object();
  TQ_TRY(write_image(image));
  TQ_TRY(write_contents(contents));
  TQ_TRY(write_page_object(image, contents));
  TQ_TRY(write_tree());
  return write_section();
}

}  // namespace

Status lay_out_page(const Options& options, Resolution resolution, int orientation, Page& page) {
  constexpr std::int32_t kWithUserUnit = 16;  // 1.6
  TQ_TRY(lay_out(Sheet(options), page.form.width, page.form.height, resolution, orientation,
                 page.layout));
  if (page.layout.user_unit != 1) page.version = kWithUserUnit;
  return kOk;
}

Status write_page(StreamHandle stream, bool safe, const Page& page) {
  Place place;
  TQ_TRY(place.find(stream, safe));
  return PageWriter(stream, safe, page, place).write();
}

}  // namespace tq::pdf::writing

namespace tq::pdf {
namespace {

bool is_on(const Options& options) {
  return options.get(IMG_OPTION_PDF_WRITING) == 1;
}

}  // namespace

Status can_encode_page(const formats::EncodeRequest& request) {
  if (!is_on(request.options)) return can_encode(request);
  writing::Page page;
  TQ_TRY(choose_form(request, page.form));
  return lay_out_page(request.options, request.resolution, 1, page);
}

Status encode_page(const formats::EncodeRequest& request) {
  if (!is_on(request.options)) return encode(request);
  writing::Page page{.texts = request.texts, .context = &request};
  TQ_TRY(choose_form(request, page.form));
  TQ_TRY(lay_out_page(request.options, request.resolution, 1, page));
  page.write_data = [](const void* context, const writing::Form& form, StreamWriter& out,
                       std::int64_t& beside) {
    return write_data(*static_cast<const formats::EncodeRequest*>(context), form, out, beside);
  };
  return write_page(request.stream, request.is_safe(), page);
}

Status can_append_page(StreamHandle stream, formats::AppendPlace& place) {
  if (!is_on(place.options)) return can_append(stream, place);
  writing::Place found;
  TQ_TRY(found.find(stream, place.over_debris));
  return found.is_new() && stream_size(stream) > 0 ? StatusCode::bad_image : StatusCode::ok;
}

}  // namespace tq::pdf
