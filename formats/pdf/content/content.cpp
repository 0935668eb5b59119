// The operators that decide which pictures are painted where, and what else is seen.
#include "formats/pdf/content/content.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <optional>

#include "core/numbers.h"
#include "formats/pdf/content/statements.h"

namespace tq::pdf::content {

using objects::Entries;
using objects::File;
using objects::Items;
using objects::Kind;
using objects::Object;
using objects::Reference;
using objects::Value;

namespace {

constexpr int kMostStates = 64, kDeepestForm = 16, kMostObjects = 10000;
constexpr std::int64_t kMostLookedThrough = 1 << 26;  // bytes of dictionaries, of a page

struct Colour {
  double red = 0, green = 0, blue = 0;

  bool is_white() const { return red > 0.997 && green > 0.997 && blue > 0.997; }
  std::uint32_t rgb() const {
    const auto level = [](double part) {
      return static_cast<std::uint32_t>(std::clamp(part, 0.0, 1.0) * 255 + 0.5);
    };
    return level(red) << 16 | level(green) << 8 | level(blue);
  }
};

Colour grey(double level) {
  return {level, level, level};
}
Colour inks(double cyan, double magenta, double yellow, double black) {
  return {(1 - cyan) * (1 - black), (1 - magenta) * (1 - black), (1 - yellow) * (1 - black)};
}

enum class Space : std::uint8_t { light, ink, lab, pattern };  // light: grey, RGB or CMYK by count

struct State {
  Matrix matrix;
  Rectangle clip;
  Colour fill, stroke;
  Space fill_space = Space::light, stroke_space = Space::light;
  double alpha = 1;
  int text_mode = 0;
};

// What a path has been given so far, on the page.
struct Path {
  bool empty = true;
  bool clips = false;
  int rectangles = 0, others = 0;
  Rectangle rectangle;  // the last one
  Rectangle around;

  void add(double x, double y, const Matrix& matrix) {
    const Rectangle point = transformed({x, y, x, y}, matrix);
    if (empty) around = point;
    around = {std::min(around.left, point.left), std::min(around.bottom, point.bottom),
              std::max(around.right, point.right), std::max(around.top, point.top)};
    empty = false;
  }
};

class Interpreter {
 public:
  Interpreter(File& file, const Rectangle& box, Painting& painting)
      : file_(file), box_(box), painting_(painting) {
    state().clip = box;
  }

  Status find_hidden_groups();
  Status run(Statements& statements, const Value& resources);

 private:
  State& state() { return states_[depth_]; }
  void push();
  void pop();

  Status execute(Statements& statements, const Value& resources);
  bool set_colour(const Statements& statements);
  bool build_path(const Statements& statements);
  Status set_space(const Value& name, const Value& resources, Space& space, Colour& colour);
  static void set_components(const Statements& statements, Space space, Colour& colour);
  Status set_graphics_state(const Value& name, const Value& resources);
  Status begin_marked(const Statements& statements, const Value& resources);
  void end_path(bool fills, bool strokes);
  void paint_more(const Rectangle& where, bool shows);
  Status paint_text(const Value& text);
  Status paint_object(const Value& name, const Value& resources);
  Status paint_form(Object&& form, const Value& resources);
  Status paint_inline(Statements& statements, const Value& resources);
  Status paint(const Painted& picture, bool covers);

  Status find(const Value& resources, std::string_view category, const Value& name, Value& value,
              Object& room);
  bool may_look_through(const Value& value);
  Status is_hidden(const Value& group, bool& hidden);
  bool is_listed(const Value& group) const;

  File& file_;
  Rectangle box_;
  Painting& painting_;
  std::array<State, kMostStates> states_;
  int depth_ = 0, lost_ = 0;  // states, and those that there is no room for
  int lowest_ = 0;            // that a form's contents can come back to
  Path path_;
  std::array<Reference, kDeepestForm> forms_;  // that are being painted
  int form_depth_ = 0;
  int objects_left_ = kMostObjects;
  std::int64_t looked_through_ = 0;
  Object hidden_room_;
  Value hidden_groups_;  // that are off
  int marked_ = 0,
      hidden_from_ = 0;  // marked content, one inside the other; 0: none of it is hidden
};

// --- Resources ---

// The value stays a reference if it is one.
Status Interpreter::find(const Value& resources, std::string_view category, const Value& name,
                         Value& value, Object& room) {
  value = {};
  if (!may_look_through(resources)) return kOk;
  value = resources[category];
  TQ_TRY(file_.resolve(value, room));
  value = may_look_through(value) ? value[name] : Value();
  return kOk;
}

// Pages that need more than any page does have more than is shown.
bool Interpreter::may_look_through(const Value& value) {
  looked_through_ += std::ssize(value.text());
  const bool may = looked_through_ <= kMostLookedThrough;
  if (!may) painting_.set_more(true);
  return may;
}

Status Interpreter::find_hidden_groups() {
  Object room, other;
  Value value = file_.trailer()["Root"];
  TQ_TRY(file_.resolve(value, room));
  value = value["OCProperties"];
  TQ_TRY(file_.resolve(value, other));
  value = value["D"];
  TQ_TRY(file_.resolve(value, room));
  value = value["OFF"];
  const bool is_elsewhere = value.is(Kind::reference);
  TQ_TRY(file_.resolve(value, other));
  TQ_TRY(hidden_room_.copy(value, is_elsewhere ? other : room));
  hidden_groups_ = hidden_room_.value();
  return kOk;
}

bool Interpreter::is_listed(const Value& group) const {
  for (Items items = hidden_groups_.items(); items.next();) {
    if (items.value().reference() == group.reference()) return true;
  }
  return false;
}

// A group, or a membership of several: off when all of them are.
Status Interpreter::is_hidden(const Value& group, bool& hidden) {
  hidden = false;
  if (!hidden_groups_.is(Kind::array) || group.is(Kind::null)) return kOk;
  if (!may_look_through(hidden_groups_)) return kOk;
  hidden = group.is(Kind::reference) && is_listed(group);
  if (hidden) return kOk;
  Object room, list;
  Value value = group;
  TQ_TRY(file_.resolve(value, room));
  value = value["OCGs"];
  if (value.is(Kind::reference) && is_listed(value)) {
    hidden = true;
    return kOk;
  }
  TQ_TRY(file_.resolve(value, list));
  int shown = 0, off = 0;
  for (Items items = value.items(); items.next();) ++(is_listed(items.value()) ? off : shown);
  hidden = off > 0 && shown == 0;
  return kOk;
}

// --- States ---

void Interpreter::push() {
  if (depth_ + 1 < kMostStates) {
    states_[depth_ + 1] = states_[depth_];
    ++depth_;
  } else {
    ++lost_;
  }
}

void Interpreter::pop() {
  if (lost_ > 0) {
    --lost_;
  } else if (depth_ > lowest_) {
    --depth_;
  }
}

Status Interpreter::set_graphics_state(const Value& name, const Value& resources) {
  Object room, other;
  Value value;
  TQ_TRY(find(resources, "ExtGState", name, value, room));
  TQ_TRY(file_.resolve(value, other));
  state().alpha = std::clamp(value["ca"].number(state().alpha), 0.0, 1.0);
  return kOk;
}

Status Interpreter::set_space(const Value& name, const Value& resources, Space& space,
                              Colour& colour) {
  colour = {};
  space = name.is_name("Pattern") ? Space::pattern : Space::light;
  if (space == Space::pattern || name.is_name("DeviceGray") || name.is_name("DeviceRGB") ||
      name.is_name("DeviceCMYK")) {
    return kOk;
  }
  Object room, other;
  Value value;
  TQ_TRY(find(resources, "ColorSpace", name, value, room));
  TQ_TRY(file_.resolve(value, other));
  Items items = value.items();
  if (items.next()) value = items.value();
  if (value.is_name("Pattern")) space = Space::pattern;
  if (value.is_name("Separation") || value.is_name("DeviceN")) space = Space::ink;
  if (value.is_name("Lab")) space = Space::lab;
  return kOk;
}

void Interpreter::set_components(const Statements& statements, Space space, Colour& colour) {
  const int count = statements.count();
  const auto part = [&](int i) { return statements.number(i, count); };
  if (space == Space::pattern || statements.last().is(Kind::name)) {
    colour = {};
  } else if (space == Space::ink) {
    double most = 0;
    for (int i = 0; i < count; ++i) most = std::max(most, part(i));
    colour = grey(1 - most);
  } else if (space == Space::lab) {
    colour = grey(part(0) / 100);
  } else if (count == 3) {
    colour = {part(0), part(1), part(2)};
  } else if (count == 4) {
    colour = inks(part(0), part(1), part(2), part(3));
  } else {
    colour = grey(part(0));
  }
}

bool Interpreter::set_colour(const Statements& statements) {
  const std::string_view name = statements.name();
  const auto is_either = [&](std::string_view fill, std::string_view stroke, Space space) {
    if (name != fill && name != stroke) return false;
    State& now = state();
    (name == fill ? now.fill_space : now.stroke_space) = space;
    set_components(statements, space, name == fill ? now.fill : now.stroke);
    return true;
  };
  return is_either("g", "G", Space::light) || is_either("rg", "RG", Space::light) ||
         is_either("k", "K", Space::light) || is_either("sc", "", state().fill_space) ||
         is_either("scn", "", state().fill_space) || is_either("", "SC", state().stroke_space) ||
         is_either("", "SCN", state().stroke_space);
}

// --- Paths and text ---

bool Interpreter::build_path(const Statements& statements) {
  const std::string_view name = statements.name();
  const auto add = [&](int points) {
    for (int i = 0; i < points; ++i) {
      path_.add(statements.number(2 * i, 2 * points), statements.number(2 * i + 1, 2 * points),
                state().matrix);
    }
    ++path_.others;
    return true;
  };
  if (name == "m" || name == "l") return add(1);
  if (name == "c") return add(3);
  if (name == "v" || name == "y") return add(2);
  if (name != "re") return name == "h";
  const double x = statements.number(0, 4), y = statements.number(1, 4);
  const double right = x + statements.number(2, 4), top = y + statements.number(3, 4);
  for (const auto& [px, py] : {std::pair(x, y), {right, y}, {x, top}, {right, top}}) {
    path_.add(px, py, state().matrix);
  }
  path_.rectangle = transformed(
      {std::min(x, right), std::min(y, top), std::max(x, right), std::max(y, top)}, state().matrix);
  ++path_.rectangles;
  return true;
}

bool is_upright(const Matrix& matrix) {
  return (matrix.b == 0 && matrix.c == 0) || (matrix.a == 0 && matrix.d == 0);
}

void Interpreter::end_path(bool fills, bool strokes) {
  if (!path_.empty) {
    paint_more(path_.around,
               (fills && !state().fill.is_white()) || (strokes && !state().stroke.is_white()));
  }
  const bool is_rectangle = path_.rectangles == 1 && path_.others == 0;
  if (path_.clips && is_rectangle && is_upright(state().matrix)) {
    state().clip = intersection(state().clip, path_.rectangle);
  }
  path_ = {};
}

// Something that is no picture.
void Interpreter::paint_more(const Rectangle& where, bool shows) {
  if (!shows || state().alpha == 0 || hidden_from_ != 0) return;
  const Rectangle clip = state().clip;  // lines and points have no area
  const bool is_within = where.left <= clip.right && where.right >= clip.left &&
                         where.bottom <= clip.top && where.top >= clip.bottom;
  if (is_within && !clip.is_empty()) painting_.set_more(true);
}

Status Interpreter::paint_text(const Value& text) {
  const int mode = state().text_mode;
  if (mode == 3 || mode == 7) return kOk;
  std::array<std::uint8_t, 64> room;
  const auto shows = [&](const Value& string) {
    const std::ptrdiff_t count = std::min(string.bytes(room), std::ssize(room));
    return std::ranges::any_of(std::span(room).first(static_cast<std::size_t>(count)),
                               [](std::uint8_t c) { return c != ' '; });
  };
  bool shown = shows(text);
  for (Items items = text.items(); !shown && items.next();) shown = shows(items.value());
  paint_more(state().clip, shown);
  return kOk;
}

// --- Pictures and forms ---

// Whether numbers are such that what is computed from them is one; products of many may be none.
bool is_measurable(const Matrix& m) {
  constexpr double kMost = 1e12;
  return std::ranges::all_of(std::array{m.a, m.b, m.c, m.d, m.e, m.f},
                             [](double element) { return std::abs(element) <= kMost; });
}

Status Interpreter::paint(const Painted& picture, bool covers) {
  if (!is_measurable(picture.matrix)) return kOk;
  constexpr Rectangle kUnit = {0, 0, 1, 1};
  const Rectangle where = intersection(transformed(kUnit, picture.matrix), picture.clip);
  if (where.is_empty() || picture.alpha == 0) return kOk;
  // What it hides is not seen.
  constexpr double kMargin = 0.01;
  const double x = kMargin * (box_.right - box_.left), y = kMargin * (box_.top - box_.bottom);
  const bool hides = covers && picture.alpha == 255 && is_upright(picture.matrix) &&
                     where.left <= box_.left + x && where.right >= box_.right - x &&
                     where.bottom <= box_.bottom + y && where.top >= box_.top - y;
  if (hides) painting_.set_more(false);
  return painting_.add(picture);
}

Status Interpreter::paint_object(const Value& name, const Value& resources) {
  if (objects_left_ == 0) {
    painting_.set_more(true);
    return kOk;
  }
  --objects_left_;
  if (hidden_from_ != 0) return kOk;
  Object room, object;
  Value reference;
  TQ_TRY(find(resources, "XObject", name, reference, room));
  TQ_TRY(file_.fetch(reference.reference(), object));
  const Value dictionary = object.value();
  if (!object.is_stream() || !may_look_through(dictionary)) return kOk;
  bool hidden = false;
  TQ_TRY(is_hidden(dictionary["OC"], hidden));
  if (hidden) return kOk;
  if (dictionary["Subtype"].is_name("Form")) return paint_form(std::move(object), resources);
  if (!dictionary["Subtype"].is_name("Image")) return kOk;
  const bool covers = !dictionary["ImageMask"].boolean() && dictionary["SMask"].is(Kind::null) &&
                      dictionary["Mask"].is(Kind::null);
  const State& now = state();
  return paint({.matrix = now.matrix,
                .clip = now.clip,
                .image = object.reference(),
                .dictionary = {},
                .data = {},
                .fill = now.fill.rgb(),
                .alpha = byte(static_cast<int>(now.alpha * 255 + 0.5))},
               covers);
}

Status Interpreter::paint_form(Object&& form, const Value& resources) {
  const auto running = std::span(forms_).first(static_cast<std::size_t>(form_depth_));
  const bool is_inside = std::ranges::find(running, form.reference()) != running.end();
  if (is_inside || form_depth_ == kDeepestForm) return kOk;
  const auto numbers = [&](std::string_view key, std::span<double> values) -> Status {
    Object room;
    Value list = form.value()[key];
    TQ_TRY(file_.resolve(list, room));
    std::size_t count = 0;
    for (Items items = list.items(); count < values.size() && items.next(); ++count) {
      values[count] = items.value().number();
    }
    return kOk;
  };
  std::array<double, 6> m = {1, 0, 0, 1, 0, 0};
  std::array<double, 4> box{};
  TQ_TRY(numbers("Matrix", m));
  TQ_TRY(numbers("BBox", box));
  Object room, own;
  Value form_resources = form.value()["Resources"];
  const bool is_elsewhere = form_resources.is(Kind::reference);
  TQ_TRY(file_.resolve(form_resources, room));
  // Older ones have those of the page.
  const bool has_own = form_resources.is(Kind::dictionary);
  if (has_own) TQ_TRY(own.copy(form_resources, is_elsewhere ? room : form));

  const int depth = depth_, lost = lost_, lowest = lowest_, marked = marked_;
  push();
  lowest_ = depth_;
  state().matrix = Matrix{m[0], m[1], m[2], m[3], m[4], m[5]} * state().matrix;
  if (is_upright(state().matrix)) {
    const Rectangle inside = {std::min(box[0], box[2]), std::min(box[1], box[3]),
                              std::max(box[0], box[2]), std::max(box[1], box[3])};
    state().clip = intersection(state().clip, transformed(inside, state().matrix));
  }
  path_ = {};
  forms_[form_depth_++] = form.reference();
  // Not on the stack, where other forms' are.
  GlobalBlock block;
  TQ_TRY(block.allocate(sizeof(Statements)));
  auto* const statements = new (block.data()) Statements;
  Status painted = statements->open(file_, std::move(form));
  if (painted.ok()) painted = run(*statements, has_own ? own.value() : resources);
  statements->~Statements();
  --form_depth_;
  depth_ = depth;
  lost_ = lost;
  lowest_ = lowest;
  marked_ = marked;
  path_ = {};
  return painted;
}

bool is_device_space(const Value& name) {
  return std::ranges::any_of(
      std::array{"G", "RGB", "CMYK", "DeviceGray", "DeviceRGB", "DeviceCMYK", "I", "Indexed"},
      [&](const char* known) { return name.is_name(known); });
}

// The bytes of an image that is not coded; negative: unknown.
std::int64_t plain_bytes(const Value& dictionary) {
  const auto entry = [&](std::string_view key, std::string_view abbreviation) {
    const Value value = dictionary[key];
    return value.is(Kind::null) ? dictionary[abbreviation] : value;
  };
  if (!entry("Filter", "F").is(Kind::null)) return -1;
  const std::int64_t width = entry("Width", "W").integer(), height = entry("Height", "H").integer();
  std::int64_t bits = entry("BitsPerComponent", "BPC").integer(), samples = 1;
  const Value space = entry("ColorSpace", "CS");
  if (entry("ImageMask", "IM").boolean()) bits = 1;
  if (space.is_name("RGB") || space.is_name("DeviceRGB")) samples = 3;
  if (space.is_name("CMYK") || space.is_name("DeviceCMYK")) samples = 4;
  Items items = space.items();
  if (items.next() && !items.value().is_name("I") && !items.value().is_name("Indexed")) return -1;
  constexpr std::int64_t kMost = 1 << 20;
  if (width <= 0 || height <= 0 || bits <= 0 || width > kMost || height > kMost || bits > 16) {
    return -1;
  }
  return (width * samples * bits + 7) / 8 * height;
}

Status Interpreter::paint_inline(Statements& statements, const Value& resources) {
  std::string_view entries;
  bool found = false;
  TQ_TRY(statements.inline_dictionary(entries, found));
  if (!found) return kOk;
  // The name of a colour space becomes what it stands for.
  Object room, other;
  Value space;
  for (Entries each(entries); each.next();) {
    const bool is_space = each.key().is_name("CS") || each.key().is_name("ColorSpace");
    if (!is_space || !each.value().is(Kind::name) || is_device_space(each.value())) continue;
    TQ_TRY(find(resources, "ColorSpace", each.value(), space, room));
    TQ_TRY(file_.resolve(space, other));
  }
  constexpr std::string_view kSpace = "/ColorSpace ";
  const std::size_t most = entries.size() + kSpace.size() + space.text().size() + 8;
  std::uint8_t* const start = painting_.allocate(most);
  if (start == nullptr) return StatusCode::out_of_memory;
  std::uint8_t* end = start;
  const auto put = [&](std::string_view text) {
    if (!text.empty()) std::memcpy(end, text.data(), text.size());
    end += text.size();
  };
  put("<<");
  if (!space.is(Kind::null)) {
    put(kSpace);
    put(space.text());
    put(" ");
  }
  put(entries);
  put(" >>");
  const Value dictionary(Kind::dictionary, {reinterpret_cast<const char*>(start),
                                            static_cast<std::size_t>(end - start)});
  std::span<const std::uint8_t> data;
  TQ_TRY(statements.inline_data(plain_bytes(dictionary), data, found));
  if (!found || hidden_from_ != 0) return kOk;
  std::uint8_t* const copy = painting_.allocate(data.size());
  if (copy == nullptr) return StatusCode::out_of_memory;
  if (!data.empty()) std::memcpy(copy, data.data(), data.size());
  const State& now = state();
  const bool is_mask = dictionary["IM"].boolean() || dictionary["ImageMask"].boolean();
  return paint({.matrix = now.matrix,
                .clip = now.clip,
                .image = {},
                .dictionary = dictionary,
                .data = {copy, data.size()},
                .fill = now.fill.rgb(),
                .alpha = byte(static_cast<int>(now.alpha * 255 + 0.5))},
               !is_mask);
}

// --- Operators ---

Status Interpreter::begin_marked(const Statements& statements, const Value& resources) {
  ++marked_;
  if (hidden_from_ != 0 || !statements.last(1).is_name("OC")) return kOk;
  Object room;
  Value group;
  bool hidden = false;
  TQ_TRY(find(resources, "Properties", statements.last(), group, room));
  TQ_TRY(is_hidden(group, hidden));
  if (hidden) hidden_from_ = marked_;
  return kOk;
}

Status Interpreter::execute(Statements& statements, const Value& resources) {
  const std::string_view name = statements.name();
  const Value& last = statements.last();
  if (set_colour(statements) || build_path(statements)) return kOk;
  if (name == "q") {
    push();
  } else if (name == "Q") {
    pop();
  } else if (name == "cm") {
    const auto number = [&](int i) { return statements.number(i, 6); };
    state().matrix =
        Matrix{number(0), number(1), number(2), number(3), number(4), number(5)} * state().matrix;
  } else if (name == "Do") {
    return paint_object(last, resources);
  } else if (name == "BI") {
    return paint_inline(statements, resources);
  } else if (name == "cs") {
    return set_space(last, resources, state().fill_space, state().fill);
  } else if (name == "CS") {
    return set_space(last, resources, state().stroke_space, state().stroke);
  } else if (name == "gs") {
    return set_graphics_state(last, resources);
  } else if (name == "W" || name == "W*") {
    path_.clips = true;
  } else if (name == "n") {
    end_path(false, false);
  } else if (name == "f" || name == "F" || name == "f*") {
    end_path(true, false);
  } else if (name == "S" || name == "s") {
    end_path(false, true);
  } else if (name == "B" || name == "B*" || name == "b" || name == "b*") {
    end_path(true, true);
  } else if (name == "sh") {
    paint_more(state().clip, true);
  } else if (name == "Tr") {
    state().text_mode = last.small_integer();
  } else if (name == "Tj" || name == "TJ" || name == "'" || name == "\"") {
    return paint_text(last);
  } else if (name == "BDC") {
    return begin_marked(statements, resources);
  } else if (name == "BMC") {
    ++marked_;
  } else if (name == "EMC") {
    if (hidden_from_ == marked_) hidden_from_ = 0;
    marked_ = std::max(marked_ - 1, 0);
  }
  return kOk;
}

Status Interpreter::run(Statements& statements, const Value& resources) {
  const int hidden_from = hidden_from_;
  for (;;) {
    bool found = false;
    TQ_TRY(statements.next(found));
    if (!found) break;
    TQ_TRY(execute(statements, resources));
  }
  hidden_from_ = hidden_from;
  return kOk;
}

}  // namespace

Status read_contents(File& file, const Object& page, const Object& resources, const Rectangle& box,
                     Painting& painting) {
  GlobalBlock block;  // too much for a stack
  TQ_TRY(block.allocate(sizeof(Interpreter)));
  auto* const interpreter = new (block.data()) Interpreter(file, box, painting);
  Status read = interpreter->find_hidden_groups();
  if (read.ok()) {
    Statements statements;
    read = statements.open(file, page.value()["Contents"], page);
    if (read.ok()) read = interpreter->run(statements, resources.value());
  }
  interpreter->~Interpreter();
  return read;
}

}  // namespace tq::pdf::content
