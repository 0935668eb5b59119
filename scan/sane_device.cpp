// From the interface's options to those of SANE devices, which have names, types and units of their own.
#include "scan/sane_device.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

namespace tq::scan {
namespace {

using namespace std::string_view_literals;

constexpr std::size_t kLongestText = 1024;  // of a value
constexpr sane::Word kMostOptions = 10000;

constexpr char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}
constexpr bool same_letter(char a, char b) {
  return lower(a) == lower(b);
}

bool has_word(std::string_view text, std::string_view word) {
  return std::search(text.begin(), text.end(), word.begin(), word.end(), same_letter) != text.end();
}

using Words = std::span<const std::string_view>;

bool has_any(std::string_view text, Words words) {
  return std::ranges::any_of(words, [&](std::string_view word) { return has_word(text, word); });
}

// Makers add to the words: "24bit Color[Fast]", "True Gray", "ADF Front".
constexpr std::string_view kMonoWords[] = {"Lineart"sv, "Line Art"sv, "Binary"sv, "Black"sv};
constexpr std::string_view kGreyWords[] = {"Gray"sv, "Grey"sv};
constexpr std::string_view kColourWords[] = {"Color"sv, "Colour"sv};
constexpr std::string_view kGlassWords[] = {"Flatbed"sv, "Glass"sv, "Normal"sv};
constexpr std::string_view kFeederWords[] = {"ADF"sv, "Feeder"sv, "Duplex"sv};
constexpr std::string_view kDuplexWords[] = {"Duplex"sv};

Words words_of_mode(std::int32_t bits) {
  if (bits == 24) return kColourWords;
  return bits == 1 ? Words(kMonoWords) : Words(kGreyWords);
}

// The plainest of the texts that have one of the words, or null.
const char* choose(const sane::Option& option, Words words, Words others = {}) {
  if (option.constraint_type != sane::kStringList || option.constraint.strings == nullptr) {
    return nullptr;
  }
  const char* best = nullptr;
  for (const char* const* text = option.constraint.strings; *text != nullptr; ++text) {
    if (!has_any(*text, words) || has_any(*text, others)) continue;
    if (best == nullptr || std::strlen(*text) < std::strlen(best)) best = *text;
  }
  return best;
}

std::int64_t to_number(const sane::Option& option, sane::Word word) {
  return option.type == sane::kFixed ? word : word * kOne;
}
sane::Word to_word(const sane::Option& option, std::int64_t number) {
  const std::int64_t word = option.type == sane::kFixed ? number : divide_rounded(number, kOne);
  return static_cast<sane::Word>(std::clamp<std::int64_t>(word, -0x80000000LL, 0x7FFFFFFF));
}

bool is_number(const sane::Option& option) {
  return (option.type == sane::kInt || option.type == sane::kFixed) &&
         option.size == sizeof(sane::Word);
}

// The least and most that an option can be; false when it does not say.
struct Limits {
  std::int64_t least = 0, most = 0, step = 0;
};
bool limits(const sane::Option& option, Limits& found) {
  if (option.constraint_type != sane::kRange || option.constraint.range == nullptr) return false;
  const sane::Range& range = *option.constraint.range;
  found = {to_number(option, range.min), to_number(option, range.max),
           to_number(option, range.quant)};
  return found.least < found.most;
}

std::int64_t nearest(const sane::Option& option, std::int64_t number) {
  Limits range;
  if (limits(option, range)) {
    number = std::clamp(number, range.least, range.most);
    if (range.step > 0) {
      const std::int64_t steps = divide_rounded(number - range.least, range.step);
      number = std::min(range.least + steps * range.step, range.most);
    }
    return number;
  }
  if (option.constraint_type != sane::kWordList || option.constraint.words == nullptr) {
    return number;
  }
  const sane::Word* const words = option.constraint.words;
  std::int64_t best = number;
  for (sane::Word i = 1; i <= words[0]; ++i) {
    const std::int64_t word = to_number(option, words[i]);
    if (i == 1 || std::abs(word - number) < std::abs(best - number)) best = word;
  }
  return best;
}

// Between the interface's unit and the option's.
class Scale {
 public:
  Scale(std::int32_t option, const sane::Option& at) : kind_(option) {
    if (!limits(at, range_)) range_ = {-100 * kOne, 100 * kOne, 0};
  }

  std::int64_t to_source(std::int64_t value) const {
    switch (kind_) {
      case IMG_SCAN_RESOLUTION:
        return from_thousandths(value);
      case IMG_SCAN_THRESHOLD:
        return range_.least + divide_rounded(value * span(), 255);
      case IMG_SCAN_BRIGHTNESS:
      case IMG_SCAN_CONTRAST:
        // 0 is what the source leaves alone, wherever that lies in its range.
        if (range_.least >= 0) return range_.least + divide_rounded((value + 1000) * span(), 2000);
        return divide_rounded(value < 0 ? -value * range_.least : value * range_.most, 1000);
      default:
        return divide_rounded(value * kOne * 254, 10000);  // inches to millimetres
    }
  }
  std::int64_t from_source(std::int64_t number) const {
    switch (kind_) {
      case IMG_SCAN_RESOLUTION:
        return to_thousandths(number);
      case IMG_SCAN_THRESHOLD:
        return divide_rounded((number - range_.least) * 255, span());
      case IMG_SCAN_BRIGHTNESS:
      case IMG_SCAN_CONTRAST:
        if (range_.least >= 0) return divide_rounded((number - range_.least) * 2000, span()) - 1000;
        if (number == 0) return 0;
        return divide_rounded(number * 1000,
                              number < 0 ? -range_.least : std::max<std::int64_t>(range_.most, 1));
      default:
        return divide_rounded(number * 10000, 254 * kOne);
    }
  }

 private:
  std::int64_t span() const { return range_.most - range_.least; }

  std::int32_t kind_;
  Limits range_;
};

}  // namespace

std::int32_t SaneDevice::open(const sane::Functions& functions, const char* name) {
  sane::Handle handle = nullptr;
  const std::int32_t status = functions.open(name, &handle);
  if (status != sane::kGood) return status;
  functions_ = &functions;
  handle_ = handle;
  return status;
}

void SaneDevice::close() {
  if (is_open()) functions_->close(handle_);
  handle_ = nullptr;
}

// --- Options by name ---

SaneDevice::Found SaneDevice::find(const char* name) const {
  sane::Word count = 0;
  if (functions_->control_option(handle_, 0, sane::kGet, &count, nullptr) != sane::kGood) return {};
  count = std::min(count, kMostOptions);
  for (sane::Word i = 1; i < count; ++i) {
    const sane::Option* const option = functions_->get_option_descriptor(handle_, i);
    if (option == nullptr || option->name == nullptr) continue;
    if ((option->capabilities & sane::kInactive) != 0) continue;
    if (std::strcmp(option->name, name) == 0) return {i, option};
  }
  return {};
}

// Devices refuse the next value until every description has been asked for again.
void SaneDevice::fetch_all() const {
  sane::Word count = 0;
  if (functions_->control_option(handle_, 0, sane::kGet, &count, nullptr) != sane::kGood) return;
  count = std::min(count, kMostOptions);
  for (sane::Word i = 0; i < count; ++i) (void)functions_->get_option_descriptor(handle_, i);
}

bool SaneDevice::control(const Found& found, sane::Action action, void* value) const {
  if (action == sane::kSet && (found.option->capabilities & sane::kSoftSelect) == 0) return false;
  sane::Word info = 0;
  const std::int32_t status =
      functions_->control_option(handle_, found.number, action, value, &info);
  if (action == sane::kSet && (info & sane::kReloadOptions) != 0) fetch_all();
  return status == sane::kGood;
}

bool SaneDevice::get_number(const Found& found, Word& number) const {
  sane::Word word = 0;
  if (!found || !is_number(*found.option) || !control(found, sane::kGet, &word)) return false;
  number = to_number(*found.option, word);
  return true;
}

bool SaneDevice::set_number(const Found& found, Word number) const {
  if (!found || !is_number(*found.option)) return false;
  sane::Word word = to_word(*found.option, nearest(*found.option, number));
  return control(found, sane::kSet, &word);
}

bool SaneDevice::get_text(const Found& found, char* text) const {
  std::fill_n(text, kLongestText, '\0');
  if (!found || found.option->type != sane::kString) return false;
  if (found.option->size < 1 || found.option->size >= sane::Word{kLongestText}) return false;
  return control(found, sane::kGet, text);
}

bool SaneDevice::set_text(const Found& found, const char* text) const {
  char value[kLongestText] = {};
  if (!found || found.option->type != sane::kString || text == nullptr) return false;
  const std::size_t length = std::strlen(text);
  if (length + 1 > kLongestText || found.option->size > sane::Word{kLongestText}) return false;
  std::copy_n(text, length, value);
  return control(found, sane::kSet, value);
}

// --- Options by meaning ---

SaneDevice::Found SaneDevice::find_number(std::int32_t option, bool second) const {
  switch (option) {
    case IMG_SCAN_RESOLUTION:
      if (const Found both = find("resolution"); both) return second ? Found{} : both;
      return find(second ? "y-resolution" : "x-resolution");
    case IMG_SCAN_BRIGHTNESS:
      return find("brightness");
    case IMG_SCAN_CONTRAST:
      return find("contrast");
    case IMG_SCAN_THRESHOLD:
      return find("threshold");
    case IMG_SCAN_LEFT:
      return find("tl-x");
    case IMG_SCAN_TOP:
      return find("tl-y");
    case IMG_SCAN_WIDTH:
      return find("br-x");
    case IMG_SCAN_HEIGHT:
      return find("br-y");
    default:
      return {};
  }
}

bool SaneDevice::mode(std::int32_t& bits) const {
  char text[kLongestText];
  const Found mode = find("mode");
  if (!get_text(mode, text)) return false;
  Word depth = 8 * kOne;
  get_number(find("depth"), depth);
  bits = has_any(text, kColourWords) ? 24 : 8;
  if (bits == 8 && (depth == kOne || (has_any(text, kMonoWords) && !has_any(text, kGreyWords)))) {
    bits = 1;
  }
  return true;
}

Status SaneDevice::apply_mode(std::int32_t bits) const {
  if (bits == 0) return kOk;
  if (const Found mode = find("mode"); mode) {
    const char* wanted = choose(*mode.option, words_of_mode(bits));
    // Some have 1 bit as a depth of grey.
    if (wanted == nullptr && bits == 1) wanted = choose(*mode.option, kGreyWords);
    if (!set_text(mode, wanted)) return StatusCode::scanner_request;
  }
  if (const Found depth = find("depth"); depth) set_number(depth, (bits == 1 ? 1 : 8) * kOne);
  std::int32_t now = 0;
  if (!mode(now)) return StatusCode::scanner_request;
  return Status::from_raw(now == bits ? 0 : 1);
}

Status SaneDevice::apply_source(const ScanOptions& wanted, bool duplex_matters) const {
  const bool duplex = wanted.get(IMG_SCAN_DUPLEX) == 1;
  const bool feeder = wanted.get(IMG_SCAN_FEEDER) == 1;
  const Found source = find("source");
  sane::Word both = duplex ? 1 : 0;
  const Found separate = find("duplex");
  const bool is_switch = separate && separate.option->type == sane::kBool;
  const char* text = nullptr;
  if (source) {
    if (duplex && feeder && !is_switch) text = choose(*source.option, kDuplexWords);
    if (text == nullptr && feeder) text = choose(*source.option, kFeederWords, kDuplexWords);
    if (text == nullptr && feeder) text = choose(*source.option, kFeederWords);
    if (!feeder) text = choose(*source.option, kGlassWords);
  }
  const bool source_set = set_text(source, text);
  const bool switch_set = is_switch && control(separate, sane::kSet, &both);
  if (duplex_matters) {
    const bool done = switch_set || !duplex || (text != nullptr && has_any(text, kDuplexWords));
    return done ? kOk : Status(StatusCode::scanner_request);
  }
  return source_set || (!source && !feeder) ? kOk : Status(StatusCode::scanner_request);
}

// Both edges, because the second one is the sum of two options.
Status SaneDevice::apply_area(const ScanOptions& wanted, bool vertical) const {
  const std::int32_t from = vertical ? IMG_SCAN_TOP : IMG_SCAN_LEFT;
  const std::int32_t side = vertical ? IMG_SCAN_HEIGHT : IMG_SCAN_WIDTH;
  const Found first = find_number(from);
  if (!first || !is_number(*first.option) || first.option->unit != sane::kMillimetres) {
    return StatusCode::scanner_request;
  }
  const Scale scale(side, *first.option);
  if (!set_number(first, scale.to_source(wanted.get(from)))) return StatusCode::scanner_request;
  const Found second = find_number(side);
  if (!second) return StatusCode::scanner_request;
  Limits range;
  const std::int64_t end = std::int64_t{wanted.get(from)} + wanted.get(side);
  const bool whole = wanted.get(side) == 0;
  if (whole && !limits(*second.option, range)) return StatusCode::scanner_request;
  if (!set_number(second, whole ? range.most : scale.to_source(end))) {
    return StatusCode::scanner_request;
  }
  // A thousandth of an inch is lost in millimetres.
  const auto differs = [&](std::int32_t option) {
    std::int32_t now = 0;
    if (whole && option == side) return false;
    return value(option, now).failed() || std::abs(now - wanted.get(option)) > 1;
  };
  return Status::from_raw(differs(from) || differs(side) ? 1 : 0);
}

Status SaneDevice::apply(const ScanOptions& wanted, std::int32_t option) const {
  if (option == IMG_SCAN_MODE) return apply_mode(wanted.get(option));
  if (option == IMG_SCAN_FEEDER || option == IMG_SCAN_DUPLEX) {
    return apply_source(wanted, option == IMG_SCAN_DUPLEX);
  }
  if (ScanOptions::is_area(option)) {
    return apply_area(wanted, option == IMG_SCAN_TOP || option == IMG_SCAN_HEIGHT);
  }
  if (option == IMG_SCAN_RESOLUTION && wanted.get(option) == 0) return kOk;
  const Found found = find_number(option);
  if (!found) return StatusCode::scanner_request;
  const Scale scale(option, *found.option);
  if (!set_number(found, scale.to_source(wanted.get(option)))) return StatusCode::scanner_request;
  if (const Found second = find_number(option, true); option == IMG_SCAN_RESOLUTION && second) {
    if (!set_number(second, scale.to_source(wanted.get(option)))) {
      return StatusCode::scanner_request;
    }
  }
  std::int32_t now = 0;
  TQ_TRY(value(option, now));
  return Status::from_raw(now == wanted.get(option) ? 0 : 1);
}

Status SaneDevice::value(std::int32_t option, std::int32_t& value) const {
  if (option == IMG_SCAN_MODE) {
    return mode(value) ? kOk : Status(StatusCode::scanner_request);
  }
  if (option == IMG_SCAN_FEEDER || option == IMG_SCAN_DUPLEX) {
    char text[kLongestText];
    const bool is_duplex = option == IMG_SCAN_DUPLEX;
    value = 0;
    if (get_text(find("source"), text)) {
      value = has_any(text, is_duplex ? Words(kDuplexWords) : Words(kFeederWords)) ? 1 : 0;
    }
    const Found separate = find("duplex");
    sane::Word both = 0;
    if (is_duplex && separate && separate.option->type == sane::kBool &&
        control(separate, sane::kGet, &both)) {
      value = both != 0 ? 1 : value;
    }
    return kOk;
  }
  if (option == IMG_SCAN_PAPER_LOADED) {
    sane::Word loaded = 0;
    const Found sensor = find("page-loaded");
    if (!sensor || sensor.option->type != sane::kBool || !control(sensor, sane::kGet, &loaded)) {
      return StatusCode::scanner_request;
    }
    value = loaded != 0 ? 1 : 0;
    return kOk;
  }
  const Found found = find_number(option);
  Word number = 0;
  if (!get_number(found, number)) return StatusCode::scanner_request;
  if (option == IMG_SCAN_WIDTH || option == IMG_SCAN_HEIGHT) {
    Word from = 0;
    get_number(find_number(option == IMG_SCAN_WIDTH ? IMG_SCAN_LEFT : IMG_SCAN_TOP), from);
    number -= from;
  }
  const std::int64_t converted = Scale(option, *found.option).from_source(number);
  value = static_cast<std::int32_t>(std::clamp<std::int64_t>(converted, INT32_MIN, INT32_MAX));
  return kOk;
}

// --- What it can take ---

void SaneDevice::list_modes(ValueList& list) const {
  const Found mode = find("mode");
  if (!mode) return;
  const bool is_grey = choose(*mode.option, kGreyWords) != nullptr;
  const Found depth = find("depth");
  const bool grey_of_1_bit =
      is_grey && depth && is_number(*depth.option) && nearest(*depth.option, kOne) == kOne;
  if (choose(*mode.option, kMonoWords) != nullptr || grey_of_1_bit) list.add(1);
  if (is_grey) list.add(8);
  if (choose(*mode.option, kColourWords) != nullptr) list.add(24);
}

void SaneDevice::list_sources(std::int32_t option, ValueList& list) const {
  const Found source = find("source");
  const bool is_duplex = option == IMG_SCAN_DUPLEX;
  const Words words = is_duplex ? Words(kDuplexWords) : Words(kFeederWords);
  const Found separate = find("duplex");
  if (is_duplex || !source || choose(*source.option, kGlassWords) != nullptr) list.add(0);
  if ((source && choose(*source.option, words) != nullptr) || (is_duplex && separate)) list.add(1);
}

Status SaneDevice::values(std::int32_t option, ValueList& list) const {
  if (option == IMG_SCAN_MODE) {
    list_modes(list);
  } else if (option == IMG_SCAN_FEEDER || option == IMG_SCAN_DUPLEX) {
    list_sources(option, list);
  } else if (const Found found = find_number(option); found) {
    const Scale scale(option, *found.option);
    const auto convert = [&](std::int64_t number) { return scale.from_source(number); };
    Limits range;
    if (limits(*found.option, range)) {
      const std::int64_t step =
          range.step == 0 ? 0 : convert(range.least + range.step) - convert(range.least);
      list.set_range(convert(range.least), convert(range.most), step);
    } else if (found.option->constraint_type == sane::kWordList &&
               found.option->constraint.words != nullptr) {
      const sane::Word* const words = found.option->constraint.words;
      for (sane::Word i = 1; i <= words[0]; ++i) {
        list.add(convert(to_number(*found.option, words[i])));
      }
    }
  }
  return list.count > 0 ? kOk : Status(StatusCode::scanner_request);
}

Resolution SaneDevice::resolution() const {
  Word x = 0, y = 0;
  if (!get_number(find_number(IMG_SCAN_RESOLUTION), x)) return {};
  if (!get_number(find_number(IMG_SCAN_RESOLUTION, true), y)) y = x;
  const auto thousandths = [](Word number) {
    return static_cast<std::int32_t>(
        std::clamp<std::int64_t>(to_thousandths(number), 0, Resolution::kMost));
  };
  return {thousandths(x), thousandths(y)};
}

}  // namespace tq::scan
