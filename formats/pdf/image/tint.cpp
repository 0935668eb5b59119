// Operations that give the same result on every machine: no power but of roots and products.
#include "formats/pdf/image/tint.h"

#include <algorithm>
#include <cmath>

#include "formats/pdf/image/filters.h"

namespace tq::pdf::image {
namespace {

using objects::File;
using objects::Kind;
using objects::Object;
using objects::Value;

constexpr std::int64_t kMostBytes = 1 << 20;  // of samples

// How many numbers there were of those wanted.
Status read_numbers(File& file, const Value& dictionary, const char* key, std::span<double> numbers,
                    int& count) {
  Object room;
  Value array = dictionary[key];
  TQ_TRY(file.resolve(array, room));
  count = 0;
  for (objects::Items items = array.items(); count < std::ssize(numbers) && items.next();) {
    Object number_room;
    Value number = items.value();
    TQ_TRY(file.resolve(number, number_room));
    numbers[count++] = number.number();
  }
  return kOk;
}

double power(double base, double exponent) {
  constexpr double kMost = 1000;
  exponent = std::clamp(exponent, 0.0, kMost);
  double result = 1;
  const int whole = static_cast<int>(exponent);
  for (int i = 0; i < whole; ++i) result *= base;
  double rest = exponent - whole, root = base;
  for (int digit = 0; digit < 24 && rest > 0; ++digit) {
    root = std::sqrt(root);
    rest *= 2;
    if (rest < 1) continue;
    rest -= 1;
    result *= root;
  }
  return result;
}

}  // namespace

Status TintFunction::read(File& file, const Value& value, int outputs) {
  Object object;
  Value dictionary = value;
  TQ_TRY(file.resolve(dictionary, object));
  if (outputs > kMostOutputs) return StatusCode::unsupported;
  outputs_ = outputs;
  int count = 0;
  TQ_TRY(read_numbers(file, dictionary, "Domain", domain_, count));
  TQ_TRY(read_numbers(file, dictionary, "Range", std::span(range_).first(2 * outputs), count));
  has_range_ = count == 2 * outputs;
  Object room;
  Value type = dictionary["FunctionType"];
  TQ_TRY(file.resolve(type, room));
  const std::int32_t number = type.small_integer(-1);
  if (number == 0 && object.is_stream()) return read_samples(file, object);
  if (number != 2) return StatusCode::unsupported;
  std::array<double, kMostOutputs> from{}, to{1, 1, 1, 1};
  TQ_TRY(read_numbers(file, dictionary, "C0", std::span(from).first(outputs), count));
  TQ_TRY(read_numbers(file, dictionary, "C1", std::span(to).first(outputs), count));
  for (int i = 0; i < outputs; ++i) {
    decode_[2 * i] = from[i];
    decode_[2 * i + 1] = to[i];
  }
  Value exponent = dictionary["N"];
  TQ_TRY(file.resolve(exponent, room));
  exponent_ = exponent.number(1);
  return kOk;
}

Status TintFunction::read_samples(File& file, const Object& stream) {
  const Value dictionary = stream.value();
  Object room;
  Value size = dictionary["Size"];
  TQ_TRY(file.resolve(size, room));
  objects::Items sizes = size.items();
  if (size.is(Kind::array)) size = sizes.next() ? sizes.value() : Value();
  count_ = size.small_integer();
  if (sizes.next()) return StatusCode::unsupported;  // more inputs than one
  Value bits = dictionary["BitsPerSample"];
  TQ_TRY(file.resolve(bits, room));
  bits_ = bits.small_integer();
  constexpr int kWidths[] = {1, 2, 4, 8, 12, 16, 24, 32};
  const bool known = std::ranges::find(kWidths, bits_) != std::end(kWidths);
  if (!known || count_ < 1 || !has_range_) return StatusCode::bad_image;
  const std::int64_t bytes = (count_ * outputs_ * bits_ + 7) / 8;
  if (bytes > kMostBytes) return StatusCode::unsupported;
  encode_ = {0, static_cast<double>(count_ - 1)};
  decode_ = range_;
  int count = 0;
  TQ_TRY(read_numbers(file, dictionary, "Encode", encode_, count));
  TQ_TRY(read_numbers(file, dictionary, "Decode", std::span(decode_).first(2 * outputs_), count));
  TQ_TRY(samples_.allocate(bytes));
  std::fill_n(samples_.data(), bytes, std::uint8_t{0});
  Filters filters;
  TQ_TRY(filters.open(file, stream));
  std::int64_t filled = 0;
  while (filled < bytes) {
    const auto piece = filters.next_piece();
    if (piece.empty()) break;
    const std::int64_t here = std::min<std::int64_t>(std::ssize(piece), bytes - filled);
    std::copy_n(piece.begin(), here, samples_.data() + filled);
    filled += here;
  }
  sampled_ = true;
  return filters.status();
}

// Of 0 to 1.
double TintFunction::sample(std::int64_t index) const {
  std::uint64_t value = 0;
  for (std::int64_t bit = index * bits_, end = bit + bits_; bit < end; ++bit) {
    value = value << 1 | (samples_.data()[bit / 8] >> (7 - bit % 8) & 1);
  }
  return static_cast<double>(value) / static_cast<double>((std::uint64_t{1} << bits_) - 1);
}

void TintFunction::evaluate(double input, std::array<double, kMostOutputs>& out) const {
  const double low = std::min(domain_[0], domain_[1]), high = std::max(domain_[0], domain_[1]);
  input = std::clamp(input, low, high);
  for (int i = 0; i < outputs_; ++i) {
    double share = 0;
    if (!sampled_) {
      share = power(std::max(input, 0.0), exponent_);
    } else {
      const double span = domain_[1] - domain_[0];
      const double last = static_cast<double>(count_ - 1);
      double place = encode_[0];
      if (span != 0) place += (input - domain_[0]) * (encode_[1] - encode_[0]) / span;
      place = std::clamp(place, 0.0, last);
      const auto before = static_cast<std::int64_t>(place);
      const std::int64_t behind = std::min(before + 1, count_ - 1);
      const double left = sample(before * outputs_ + i), right = sample(behind * outputs_ + i);
      share = left + (right - left) * (place - static_cast<double>(before));
    }
    double value = decode_[2 * i] + share * (decode_[2 * i + 1] - decode_[2 * i]);
    if (has_range_ && range_[2 * i] <= range_[2 * i + 1]) {
      value = std::clamp(value, range_[2 * i], range_[2 * i + 1]);
    }
    out[i] = value;
  }
}

}  // namespace tq::pdf::image
