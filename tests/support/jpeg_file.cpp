#include "tests/support/jpeg_file.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <random>

namespace tq::test {

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

namespace {

int ceil_div(int a, int b) {
  return (a + b - 1) / b;
}

int size_of(int value) {
  int size = 0;
  for (int amount = std::abs(value); amount != 0; amount /= 2) ++size;
  return size;
}

// All 256 symbols: 100 codes of 8 bits, 156 of 12.
constexpr int kShortCodes = 100;

class BitPacker {
 public:
  explicit BitPacker(Bytes& out) : out_(out) {}
  void bits(int value, int count) {
    for (int i = count - 1; i >= 0; --i) bit(value >> i & 1);
  }
  void symbol(int symbol) {
    if (symbol < kShortCodes) {
      bits(symbol, 8);
    } else {
      bits((kShortCodes << 4) + symbol - kShortCodes, 12);
    }
  }
  void value(int value) { bits(value < 0 ? value - 1 : value, size_of(value)); }
  void align() {
    while (filled_ != 0) bit(1);
  }

 private:
  void bit(int bit) {
    byte_ = byte_ << 1 | bit;
    if (++filled_ < 8) return;
    out_.push_back(static_cast<std::uint8_t>(byte_));
    if (out_.back() == 0xFF) out_.push_back(0);
    byte_ = filled_ = 0;
  }
  Bytes& out_;
  int byte_ = 0, filled_ = 0;
};

// Codes the blocks of one scan.
class ScanWriter {
 public:
  ScanWriter(const JpegPicture& picture, const JpegScan& scan, Bytes& out)
      : picture_(picture), scan_(scan), out_(out), pack_(out) {}

  void write() {
    const bool alone = scan_.components.size() == 1;
    const JpegComponent& first = picture_.components[scan_.components[0]];
    const int h = picture_.components.size() == 1 ? 1 : first.h;
    const int v = picture_.components.size() == 1 ? 1 : first.v;
    const int columns = alone ? first.used_columns : first.columns / h;
    const int rows = alone ? first.used_rows : first.rows / v;
    int done = 0;
    for (int row = 0; row < rows; ++row) {
      for (int column = 0; column < columns; ++column, ++done) {
        if (picture_.restart_interval != 0 && done != 0 && done % picture_.restart_interval == 0) {
          restart(done / picture_.restart_interval - 1);
        }
        for (const int index : scan_.components) mcu(index, alone, column, row);
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
    if (!picture_.progressive) {
      dc(index, coefficients[0], 0);
      ac(coefficients, 1, 63, 0);
    } else if (scan_.first == 0) {
      if (scan_.high == 0) {
        dc(index, coefficients[0], scan_.low);
      } else {
        pack_.bits(coefficients[0] >> scan_.low & 1, 1);
      }
    } else if (scan_.high == 0) {
      ac(coefficients, scan_.first, scan_.last, scan_.low);
    } else {
      refine(coefficients);
    }
  }

  void dc(int index, int value, int low) {
    const int shifted = value >> low;
    const int difference = shifted - predictors_[index];
    predictors_[index] = shifted;
    pack_.symbol(size_of(difference));
    pack_.value(difference);
  }

  void ac(const std::vector<int>& coefficients, int first, int last, int low) {
    int run = 0;
    for (int k = first; k <= last; ++k) {
      const int value = coefficients[kOrder[k]] / (1 << low);
      if (value == 0) {
        ++run;
        continue;
      }
      end_run();
      for (; run > 15; run -= 16) pack_.symbol(0xF0);
      pack_.symbol(run << 4 | size_of(value));
      pack_.value(value);
      run = 0;
    }
    if (run == 0) return;
    if (picture_.progressive) {
      ++ended_;
      if (ended_ == 0x7FFF) end_run();
    } else {
      pack_.symbol(0);
    }
  }

  void refine(const std::vector<int>& coefficients) {
    const int low = scan_.low;
    const auto amount = [&](int k) { return std::abs(coefficients[kOrder[k]]) >> low; };
    int last_new = 0;
    for (int k = scan_.first; k <= scan_.last; ++k) {
      if (amount(k) == 1) last_new = k;
    }
    int run = 0;
    std::vector<int> corrections;
    for (int k = scan_.first; k <= scan_.last; ++k) {
      if (amount(k) == 0) {
        ++run;
        continue;
      }
      for (; run > 15 && k <= last_new; run -= 16) {
        end_run();
        pack_.symbol(0xF0);
        for (const int bit : corrections) pack_.bits(bit, 1);
        corrections.clear();
      }
      if (amount(k) > 1) {
        corrections.push_back(amount(k) & 1);
        continue;
      }
      end_run();
      pack_.symbol(run << 4 | 1);
      pack_.bits(coefficients[kOrder[k]] < 0 ? 0 : 1, 1);
      for (const int bit : corrections) pack_.bits(bit, 1);
      corrections.clear();
      run = 0;
    }
    if (run == 0 && corrections.empty()) return;
    ++ended_;
    corrections_.insert(corrections_.end(), corrections.begin(), corrections.end());
    if (ended_ == 0x7FFF) end_run();
  }

  void end_run() {
    if (ended_ == 0) return;
    const int size = size_of(ended_) - 1;
    pack_.symbol(size << 4);
    pack_.bits(ended_ - (1 << size), size);
    for (const int bit : corrections_) pack_.bits(bit, 1);
    corrections_.clear();
    ended_ = 0;
  }

  const std::vector<int> kOrder = zigzag();
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

}  // namespace

void random_coefficients(JpegPicture& picture, unsigned seed, int amount) {
  std::mt19937 random(seed);
  const auto below = [&](int limit) { return static_cast<int>(random() % unsigned(limit)); };
  int h_most = 1, v_most = 1;
  for (const JpegComponent& component : picture.components) {
    h_most = std::max(h_most, component.h);
    v_most = std::max(v_most, component.v);
  }
  const bool single = picture.components.size() == 1;
  for (JpegComponent& component : picture.components) {
    const int h = single ? 1 : component.h, v = single ? 1 : component.v;
    const int hm = single ? 1 : h_most, vm = single ? 1 : v_most;
    component.columns = ceil_div(picture.width, 8 * hm) * h;
    component.rows = ceil_div(picture.height, 8 * vm) * v;
    component.used_columns = ceil_div(ceil_div(picture.width * h, hm), 8);
    component.used_rows = ceil_div(ceil_div(picture.height * v, vm), 8);
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
    Bytes table{byte(static_cast<int>(i) | (picture.sixteen_bit_quantisers ? 0x10 : 0))};
    for (const int place : order) {
      if (picture.sixteen_bit_quantisers) table.push_back(byte(picture.quantisers[i][place] >> 8));
      table.push_back(byte(picture.quantisers[i][place]));
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
    JpegScan all;
    for (int i = 0; i < static_cast<int>(picture.components.size()); ++i) {
      all.components.push_back(i);
    }
    scans.push_back(all);
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

std::vector<double> model_samples(const JpegPicture& picture, int index, int y) {
  const JpegComponent& component = picture.components[index];
  const std::vector<int>& steps = picture.quantisers[component.quantiser];
  std::vector<double> row;
  for (int column = 0; column < component.columns; ++column) {
    const auto& block = component.blocks[(y / 8) * component.columns + column];
    for (int x = 0; x < 8; ++x) {
      double sum = 0;
      for (int i = 0; i < 64; ++i) {
        if (block[i] == 0) continue;
        const int u = i % 8, v = i / 8;
        const double scale =
            (u == 0 ? std::numbers::sqrt2 / 2 : 1) * (v == 0 ? std::numbers::sqrt2 / 2 : 1) / 4;
        sum += scale * block[i] * steps[i] * std::cos((2 * x + 1) * u * std::numbers::pi / 16) *
               std::cos((2 * (y % 8) + 1) * v * std::numbers::pi / 16);
      }
      row.push_back(sum);
    }
  }
  return row;
}

std::vector<double> model_coefficients(const std::vector<double>& samples) {
  std::vector<double> coefficients(64);
  for (int k = 0; k < 64; ++k) {
    for (int i = 0; i < 64; ++i) {
      coefficients[k] += samples[i] *
                         std::cos((2 * (i % 8) + 1) * (k % 8) * std::numbers::pi / 16) *
                         std::cos((2 * (i / 8) + 1) * (k / 8) * std::numbers::pi / 16) / 4;
    }
    if (k % 8 == 0) coefficients[k] /= std::numbers::sqrt2;
    if (k / 8 == 0) coefficients[k] /= std::numbers::sqrt2;
  }
  return coefficients;
}

std::vector<std::vector<double>> model_rows(const JpegPicture& picture) {
  const std::size_t count = picture.components.size();
  int h_most = 1, v_most = 1;
  for (const JpegComponent& component : picture.components) {
    h_most = std::max(h_most, component.h);
    v_most = std::max(v_most, component.v);
  }
  const auto limited = [](double value) { return std::clamp(value, 0.0, 255.0); };
  std::vector<std::vector<double>> rows;
  for (int y = 0; y < picture.height; ++y) {
    std::vector<std::vector<double>> planes;
    for (std::size_t i = 0; i < count; ++i) {
      const int v = count == 1 ? 1 : picture.components[i].v;
      planes.push_back(
          model_samples(picture, static_cast<int>(i), y * v / (count == 1 ? 1 : v_most)));
    }
    std::vector<double> row;
    for (int x = 0; x < picture.width; ++x) {
      std::vector<double> s;
      for (std::size_t i = 0; i < count; ++i) {
        const JpegComponent& c = picture.components[i];
        s.push_back(std::clamp(planes[i][count == 1 ? x : x * c.h / h_most], -128.0, 127.0));
      }
      if (count == 3) {
        // What chroma adds is cut towards zero.
        for (double& sample : s) sample = std::floor(sample + 0.5);
        row.push_back(limited(s[0] + std::trunc(1.772 * s[1]) + 128));
        row.push_back(
            limited(s[0] - std::trunc(0.34414 * s[1]) - std::trunc(0.71414 * s[2]) + 128));
        row.push_back(limited(s[0] + std::trunc(1.402 * s[2]) + 128));
      } else {
        for (const double sample : s) row.push_back(sample + 128);
      }
    }
    rows.push_back(row);
  }
  return rows;
}

Difference difference(const std::vector<std::vector<double>>& model,
                      const std::vector<Bytes>& rows) {
  Difference result;
  double sum = 0, count = 0;
  if (model.size() != rows.size()) return {1e9, 1e9};
  for (std::size_t y = 0; y < rows.size(); ++y) {
    if (rows[y].size() < model[y].size()) return {1e9, 1e9};
    for (std::size_t x = 0; x < model[y].size(); ++x) {
      const double d = std::abs(model[y][x] - rows[y][x]);
      result.largest = std::max(result.largest, d);
      sum += d;
      ++count;
    }
  }
  result.mean = sum / count;
  return result;
}

}  // namespace tq::test
