#include "tests/support/jpeg_file.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <random>
#include <utility>

namespace tq::test {
namespace {

// The zigzag sequence, walked.
std::vector<int> zigzag() {
  std::vector<int> order;
  for (int sum = 0; sum < 15; ++sum) {
    for (int i = 0; i <= sum; ++i) {
      const int row = sum % 2 == 0 ? sum - i : i;
      if (row < 8 && sum - row < 8) order.push_back(8 * row + sum - row);
    }
  }
  return order;
}

int ceil_div(int a, int b) {
  return (a + b - 1) / b;
}

int size_of(int value) {
  int size = 0;
  for (int amount = std::abs(value); amount != 0; amount /= 2) ++size;
  return size;
}

// How a component lies in the picture. The factors of an only one mean nothing.
struct Sampling {
  int h = 1, v = 1, h_most = 1, v_most = 1;
};
Sampling sampling_of(const JpegPicture& picture, int index) {
  Sampling s;
  if (picture.components.size() == 1) return s;
  for (const JpegComponent& component : picture.components) {
    s.h_most = std::max(s.h_most, component.h);
    s.v_most = std::max(s.v_most, component.v);
  }
  s.h = picture.components[index].h;
  s.v = picture.components[index].v;
  return s;
}

// All 256 symbols: 100 codes of 8 bits, 156 of 12.
constexpr int kShortCodes = 100;

class BitPacker {
 public:
  explicit BitPacker(Bytes& out) : out_(out) {}
  void bits(int value, int count) {
    for (int i = count - 1; i >= 0; --i) {
      byte_ = byte_ << 1 | (value >> i & 1);
      if (++filled_ < 8) continue;
      out_.push_back(static_cast<std::uint8_t>(byte_));
      if (out_.back() == 0xFF) out_.push_back(0);
      byte_ = filled_ = 0;
    }
  }
  void symbol(int symbol) {
    const bool is_short = symbol < kShortCodes;
    bits(is_short ? symbol : (kShortCodes << 4) + symbol - kShortCodes, is_short ? 8 : 12);
  }
  void value(int value) { bits(value < 0 ? value - 1 : value, size_of(value)); }
  void flags(std::vector<int>& flags) {
    for (const int flag : flags) bits(flag, 1);
    flags.clear();
  }
  void align() { bits(0x7F, -filled_ & 7); }

 private:
  Bytes& out_;
  int byte_ = 0, filled_ = 0;
};

// Codes the blocks of one scan.
class ScanWriter {
 public:
  ScanWriter(const JpegPicture& picture, const JpegScan& scan, Bytes& out)
      : picture_(picture), scan_(scan), out_(out), pack_(out) {}

  void write() {
    const int index = scan_.components[0];
    const JpegComponent& first = picture_.components[index];
    const Sampling sampling = sampling_of(picture_, index);
    const bool alone = scan_.components.size() == 1;
    const int columns = alone ? first.used_columns : first.columns / sampling.h;
    const int rows = alone ? first.used_rows : first.rows / sampling.v;
    int done = 0;
    for (int row = 0; row < rows; ++row) {
      for (int column = 0; column < columns; ++column, ++done) {
        if (picture_.restart_interval != 0 && done != 0 && done % picture_.restart_interval == 0) {
          restart(done / picture_.restart_interval - 1);
        }
        for (const int i : scan_.components) mcu(i, alone, column, row);
      }
    }
    end_run();
    pack_.align();
  }

 private:
  void restart(int number) {
    end_run();
    pack_.align();
    out_.push_back(0xFF);
    out_.push_back(static_cast<std::uint8_t>(0xD0 | number % 8));
    predictors_.fill(0);
  }

  void mcu(int index, bool alone, int column, int row) {
    const JpegComponent& component = picture_.components[index];
    const int h = alone ? 1 : component.h, v = alone ? 1 : component.v;
    for (int y = 0; y < v; ++y) {
      for (int x = 0; x < h; ++x) {
        block(index, component.blocks[(row * v + y) * component.columns + column * h + x]);
      }
    }
  }

  void block(int index, const std::vector<int>& coefficients) {
    if (scan_.first == 0 && scan_.high == 0) {
      const int shifted = coefficients[0] >> scan_.low;
      const int difference = shifted - std::exchange(predictors_[index], shifted);
      pack_.symbol(size_of(difference));
      pack_.value(difference);
    } else if (scan_.first == 0) {
      pack_.bits(coefficients[0] >> scan_.low, 1);
    }
    if (!picture_.progressive || scan_.first > 0) ac(coefficients);
  }

  // Values, and in a refining scan a bit for each older one, behind the new one that follows.
  void ac(const std::vector<int>& coefficients) {
    const int first = std::max(scan_.first, 1);
    const auto value = [&](int k) { return coefficients[order_[k]] / (1 << scan_.low); };
    const auto is_new = [&](int k) {
      return value(k) != 0 && (scan_.high == 0 || std::abs(value(k)) == 1);
    };
    int last_new = scan_.last;
    while (last_new >= first && !is_new(last_new)) --last_new;
    int run = 0;
    std::vector<int> corrections;
    for (int k = first; k <= scan_.last; ++k) {
      if (value(k) == 0) {
        ++run;
        continue;
      }
      for (; run > 15 && k <= last_new; run -= 16) {
        end_run();
        pack_.symbol(0xF0);
        pack_.flags(corrections);
      }
      if (!is_new(k)) {
        corrections.push_back(value(k) & 1);
        continue;
      }
      end_run();
      pack_.symbol(run << 4 | size_of(value(k)));
      pack_.value(value(k));
      pack_.flags(corrections);
      run = 0;
    }
    if (run == 0 && corrections.empty()) return;
    if (!picture_.progressive) return pack_.symbol(0);
    corrections_.insert(corrections_.end(), corrections.begin(), corrections.end());
    if (++ended_ == 0x7FFF) end_run();
  }

  void end_run() {
    if (ended_ == 0) return;
    const int size = size_of(ended_) - 1;
    pack_.symbol(size << 4);
    pack_.bits(ended_, size);
    pack_.flags(corrections_);
    ended_ = 0;
  }

  const std::vector<int> order_ = zigzag();
  const JpegPicture& picture_;
  const JpegScan& scan_;
  Bytes& out_;
  BitPacker pack_;
  std::array<int, 4> predictors_{};
  int ended_ = 0;
  std::vector<int> corrections_;
};

void append(Bytes& out, const Bytes& more) {
  out.insert(out.end(), more.begin(), more.end());
}
std::uint8_t byte(int value) {
  return static_cast<std::uint8_t>(value);
}

// A row of samples before the level shift, exact: the inverse transform by its definition.
std::vector<double> model_samples(const JpegPicture& picture, int index, int y) {
  const JpegComponent& component = picture.components[index];
  const std::vector<int>& steps = picture.quantisers[component.quantiser];
  const auto wave = [](int x, int u) {
    return std::cos((2 * x + 1) * u * std::numbers::pi / 16) *
           (u == 0 ? std::numbers::sqrt2 / 2 : 1);
  };
  std::vector<double> row;
  for (int column = 0; column < component.columns; ++column) {
    const auto& block = component.blocks[(y / 8) * component.columns + column];
    for (int x = 0; x < 8; ++x) {
      double sum = 0;
      for (int i = 0; i < 64; ++i) {
        if (block[i] == 0) continue;
        sum += block[i] * steps[i] * wave(x, i % 8) * wave(y % 8, i / 8) / 4;
      }
      row.push_back(sum);
    }
  }
  return row;
}

}  // namespace

void random_coefficients(JpegPicture& picture, unsigned seed, int amount) {
  std::mt19937 random(seed);
  const auto below = [&](int limit) { return static_cast<int>(random() % unsigned(limit)); };
  for (int index = 0; JpegComponent & component : picture.components) {
    const auto [h, v, h_most, v_most] = sampling_of(picture, index++);
    component.columns = ceil_div(picture.width, 8 * h_most) * h;
    component.rows = ceil_div(picture.height, 8 * v_most) * v;
    component.used_columns = ceil_div(ceil_div(picture.width * h, h_most), 8);
    component.used_rows = ceil_div(ceil_div(picture.height * v, v_most), 8);
    component.blocks.assign(component.columns * component.rows, std::vector<int>(64));
    for (auto& block : component.blocks) {
      block[0] = below(8 * amount) - 4 * amount;
      for (int count = below(4) == 0 ? 0 : below(12); count > 0; --count) {
        block[below(below(3) == 0 ? 64 : 20)] = below(amount) - amount / 2;
      }
    }
  }
}

Bytes jpeg_segment(int marker, const Bytes& content) {
  const int length = static_cast<int>(content.size()) + 2;
  Bytes out{0xFF, byte(marker), byte(length >> 8), byte(length)};
  append(out, content);
  return out;
}

Bytes adobe_segment(int transform) {
  return jpeg_segment(0xEE, {'A', 'd', 'o', 'b', 'e', 0, 100, 0, 0, 0, 0, byte(transform)});
}

Bytes jpeg_file(const JpegPicture& picture) {
  const std::vector<int> order = zigzag();
  Bytes out{0xFF, 0xD8};
  append(out, picture.extra);
  for (std::size_t i = 0; i < picture.quantisers.size(); ++i) {
    const std::vector<int>& steps = picture.quantisers[i];
    const bool wide = *std::max_element(steps.begin(), steps.end()) > 255;
    Bytes table{byte(static_cast<int>(i) | (wide ? 0x10 : 0))};
    for (const int place : order) {
      if (wide) table.push_back(byte(steps[place] >> 8));
      table.push_back(byte(steps[place]));
    }
    append(out, jpeg_segment(0xDB, table));
  }
  Bytes frame{byte(picture.precision), byte(picture.height >> 8),
              byte(picture.height),    byte(picture.width >> 8),
              byte(picture.width),     byte(int(picture.components.size()))};
  for (std::size_t i = 0; i < picture.components.size(); ++i) {
    const JpegComponent& c = picture.components[i];
    append(frame, {byte(static_cast<int>(i) + 1), byte(c.h << 4 | c.v), byte(c.quantiser)});
  }
  append(out, jpeg_segment(picture.progressive ? 0xC2 : 0xC1, frame));
  for (const int slot : {0x00, 0x10}) {
    Bytes table(17);
    table[0] = byte(slot);
    table[8] = kShortCodes;
    table[12] = 256 - kShortCodes;
    for (int i = 0; i < 256; ++i) table.push_back(byte(i));
    append(out, jpeg_segment(0xC4, table));
  }
  if (picture.restart_interval != 0) {
    append(out, jpeg_segment(
                    0xDD, {byte(picture.restart_interval >> 8), byte(picture.restart_interval)}));
  }
  std::vector<JpegScan> scans = picture.scans;
  if (scans.empty()) {
    scans.resize(1);
    for (std::size_t i = 0; i < picture.components.size(); ++i) {
      scans[0].components.push_back(static_cast<int>(i));
    }
  }
  for (const JpegScan& scan : scans) {
    Bytes header{byte(int(scan.components.size()))};
    for (const int component : scan.components) append(header, {byte(component + 1), 0});
    append(header, {byte(scan.first), byte(scan.last), byte(scan.high << 4 | scan.low)});
    append(out, jpeg_segment(0xDA, header));
    ScanWriter(picture, scan, out).write();
  }
  append(out, {0xFF, 0xD9});
  return out;
}

std::vector<std::vector<double>> model_rows(const JpegPicture& picture) {
  const int count = static_cast<int>(picture.components.size());
  const auto limited = [](double value) { return std::clamp(value, 0.0, 255.0); };
  std::vector<std::vector<double>> rows;
  for (int y = 0; y < picture.height; ++y) {
    std::vector<std::vector<double>> planes;
    for (int i = 0; i < count; ++i) {
      const Sampling sampling = sampling_of(picture, i);
      planes.push_back(model_samples(picture, i, y * sampling.v / sampling.v_most));
    }
    std::vector<double>& row = rows.emplace_back();
    for (int x = 0; x < picture.width; ++x) {
      std::vector<double> s;
      for (int i = 0; i < count; ++i) {
        const Sampling sampling = sampling_of(picture, i);
        s.push_back(std::clamp(planes[i][x * sampling.h / sampling.h_most], -128.0, 127.0));
      }
      if (count != 3) {
        for (const double sample : s) row.push_back(sample + 128);
        continue;
      }
      // What chroma adds is cut towards zero.
      for (double& sample : s) sample = std::floor(sample + 0.5);
      row.push_back(limited(s[0] + std::trunc(1.772 * s[1]) + 128));
      row.push_back(limited(s[0] - std::trunc(0.34414 * s[1]) - std::trunc(0.71414 * s[2]) + 128));
      row.push_back(limited(s[0] + std::trunc(1.402 * s[2]) + 128));
    }
  }
  return rows;
}

Difference difference(const std::vector<std::vector<double>>& model,
                      const std::vector<Bytes>& rows) {
  Difference result;
  double count = 0;
  if (model.size() != rows.size()) return {1e9, 1e9};
  for (std::size_t y = 0; y < rows.size(); ++y) {
    if (rows[y].size() < model[y].size()) return {1e9, 1e9};
    for (std::size_t x = 0; x < model[y].size(); ++x, ++count) {
      const double d = std::abs(model[y][x] - rows[y][x]);
      result.largest = std::max(result.largest, d);
      result.mean += d;
    }
  }
  result.mean /= count;
  return result;
}

}  // namespace tq::test
