// Scans of a progressive picture (ITU-T T.81 Annex G): what matters most comes first, each scan with
// codes of its own.
#include <algorithm>
#include <bit>
#include <cstdlib>

#include "formats/jpeg/encode/encoder.h"

namespace tq::jpeg {
namespace {

constexpr int kZeroRun = 0xF0;
constexpr std::uint32_t kLongestEndOfBandRun = 0x7FFF;
constexpr int kMostCorrections = 1000;  // bits

// Counts the symbols of a scan.
struct Counter {
  std::array<SymbolCounts, 2> counts{};

  void symbol(int table, int value) { ++counts[table][value]; }
  void bits(std::uint32_t /*value*/, int /*count*/) {}
  Status end_block() { return kOk; }
};

// Writes them.
struct Emitter {
  CodeWriter& writer;
  std::array<EncodeTable, 2> codes;

  void symbol(int table, int value) {
    writer.bits().put(codes[table].code[value], codes[table].length[value]);
  }
  void bits(std::uint32_t value, int count) {
    if (count > 0) writer.bits().put(value, count);
  }
  Status end_block() { return writer.make_room(); }
};

constexpr std::uint32_t low_bits(std::int32_t value, int count) {
  return static_cast<std::uint32_t>(value) & ((1u << count) - 1);
}

// The places of a scan's band.
constexpr std::uint64_t band_of(const EncodedScan& scan) {
  return (~std::uint64_t{0} >> (kBlock - 1 - scan.last)) & ~std::uint64_t{0} << scan.first;
}

template <class Out>
class ScanCoder {
 public:
  ScanCoder(const EncodedFrame& frame, const EncodedScan& scan, Out& out)
      : frame_(frame), scan_(scan), out_(out), table_(frame.components[scan.component].table) {}

  void dc(int component, const QuantisedBlock& block) {
    const std::int32_t value = block.values[0] >> scan_.low;
    if (scan_.high != 0) {
      out_.bits(low_bits(value, 1), 1);
      return;
    }
    const std::int32_t difference = value - predictors_[component];
    predictors_[component] = value;
    const int size = std::bit_width(static_cast<std::uint32_t>(std::abs(difference)));
    out_.symbol(frame_.components[component].table, size);
    out_.bits(low_bits(difference - (difference < 0 ? 1 : 0), size), size);
  }

  void ac(const QuantisedBlock& block) {
    if (scan_.high == 0) {
      first_ac(block);
    } else {
      refine_ac(block);
    }
  }

  // The blocks that have nothing more in the band, and the corrections of theirs that wait.
  void end_run() {
    if (ended_ == 0) return;
    const int size = std::bit_width(ended_) - 1;
    out_.symbol(table_, size << 4);
    out_.bits(low_bits(static_cast<std::int32_t>(ended_), size), size);
    ended_ = 0;
    put_corrections(0, waiting_);
    waiting_ = 0;
  }

 private:
  void zero_runs(int& run) {
    for (; run > 15; run -= 16) out_.symbol(table_, kZeroRun);
  }

  void first_ac(const QuantisedBlock& block) {
    int last = scan_.first - 1;
    for (std::uint64_t places = block.present & band_of(scan_); places != 0; places &= places - 1) {
      const int place = std::countr_zero(places);
      const std::int32_t value = block.values[kZigzag[place]];
      const std::int32_t magnitude = std::abs(value) >> scan_.low;
      if (magnitude == 0) continue;
      end_run();
      int run = place - last - 1;
      last = place;
      zero_runs(run);
      const int size = std::bit_width(static_cast<std::uint32_t>(magnitude));
      out_.symbol(table_, run << 4 | size);
      out_.bits(low_bits(value < 0 ? ~magnitude : magnitude, size), size);
    }
    if (last != scan_.last && ++ended_ == kLongestEndOfBandRun) end_run();
  }

  // Places that are 0 so far count for runs; the others get one bit more, behind the symbol that
  // comes next or with the end of the band.
  void refine_ac(const QuantisedBlock& block) {
    const std::uint64_t places = block.present & band_of(scan_);
    int newest = -1;  // the last place that is no longer 0
    for (std::uint64_t left = places; left != 0; left &= left - 1) {
      const int place = std::countr_zero(left);
      if (std::abs(block.values[kZigzag[place]]) >> scan_.low == 1) newest = place;
    }
    int run = 0, start = waiting_, end = waiting_, last = scan_.first - 1;
    for (std::uint64_t left = places; left != 0; left &= left - 1) {
      const int place = std::countr_zero(left);
      const std::int32_t value = block.values[kZigzag[place]];
      const std::int32_t magnitude = std::abs(value) >> scan_.low;
      run += place - last - 1;
      last = place;
      if (magnitude == 0) {
        ++run;
        continue;
      }
      while (run > 15 && place <= newest) {
        end_run();
        out_.symbol(table_, kZeroRun);
        run -= 16;
        put_corrections(start, end);
        start = end = 0;
      }
      if (magnitude > 1) {
        corrections_[end++] = byte(magnitude & 1);
        continue;
      }
      end_run();
      out_.symbol(table_, run << 4 | 1);
      out_.bits(value < 0 ? 0 : 1, 1);
      put_corrections(start, end);
      run = start = end = 0;
    }
    if (last == scan_.last && run == 0 && start == end) return;
    ++ended_;
    waiting_ = end;
    if (ended_ == kLongestEndOfBandRun || waiting_ > kMostCorrections - kBlock + 1) end_run();
  }

  void put_corrections(int from, int to) {
    for (; from < to; ++from) out_.bits(corrections_[from], 1);
  }

  const EncodedFrame& frame_;
  const EncodedScan scan_;
  Out& out_;
  int table_;
  std::array<std::int32_t, kMostEncodedComponents> predictors_{};
  std::uint32_t ended_ = 0;                                   // blocks
  std::array<std::uint8_t, kMostCorrections> corrections_{};  // one bit each
  int waiting_ = 0;                                           // of them
};

// What the scans are made of.
struct Picture {
  const EncodedFrame& frame;
  const Planes& planes;
  const BlockStore& store;
};

template <class Out>
Status code_dc_scan(const Picture& picture, const EncodedScan& scan, Out& out) {
  const EncodedFrame& frame = picture.frame;
  ScanCoder<Out> coder(frame, scan, out);
  for (int mcu_row = 0; mcu_row < frame.mcu_rows(); ++mcu_row) {
    for (int mcu = 0; mcu < picture.planes.mcus(); ++mcu) {
      for (int i = 0; i < frame.count; ++i) {
        const auto [h, v, table] = frame.components[i];
        for (int y = 0; y < v; ++y) {
          const QuantisedBlock* const row = picture.store.row(i, mcu_row * v + y) + mcu * h;
          for (int x = 0; x < h; ++x) coder.dc(i, row[x]);
        }
      }
      TQ_TRY(out.end_block());
    }
  }
  return kOk;
}

template <class Out>
Status code_ac_scan(const Picture& picture, const EncodedScan& scan, Out& out) {
  ScanCoder<Out> coder(picture.frame, scan, out);
  const int columns = picture.planes.columns(scan.component);
  for (int y = 0; y < picture.planes.rows(scan.component); ++y) {
    const QuantisedBlock* const row = picture.store.row(scan.component, y);
    for (int x = 0; x < columns; ++x) {
      coder.ac(row[x]);
      TQ_TRY(out.end_block());
    }
  }
  coder.end_run();
  return kOk;
}

template <class Out>
Status code_scan(const Picture& picture, const EncodedScan& scan, Out& out) {
  return scan.first == 0 ? code_dc_scan(picture, scan, out) : code_ac_scan(picture, scan, out);
}

Status write_scan(const Picture& picture, const EncodedScan& scan, CodeWriter& writer) {
  Counter counter;
  TQ_TRY(code_scan(picture, scan, counter));
  Emitter emitter{writer, {}};
  for (int table = 0; table < 2; ++table) {
    const SymbolCounts& counts = counter.counts[table];
    if (std::all_of(counts.begin(), counts.end(), [](auto count) { return count == 0; })) continue;
    const HuffmanSpec spec = optimal_codes(counts);
    emitter.codes[table] = encode_table(spec);
    put_huffman_table(writer.out(), (scan.first == 0 ? 0x00 : 0x10) | table, spec);
  }
  put_scan_header(writer.out(), picture.frame, scan);
  TQ_TRY(code_scan(picture, scan, emitter));
  return writer.end_scan();
}

}  // namespace

Status write_progressive(const EncodedFrame& frame, const Planes& planes, const BlockStore& store,
                         CodeWriter& writer) {
  const Picture picture{frame, planes, store};
  const auto write = [&](const EncodedScan& scan) { return write_scan(picture, scan, writer); };
  const auto write_dc = [&](int high, int low) {
    return write({.count = frame.count, .last = 0, .high = high, .low = low});
  };
  const auto write_ac = [&](int component, int first, int last, int high, int low) {
    return write({component, 1, first, last, high, low});
  };
  put_frame_header(writer.out(), frame);
  TQ_TRY(write_dc(0, 1));
  if (frame.count == 3) {
    TQ_TRY(write_ac(0, 1, 5, 0, 2));
    for (const int chroma : {1, 2}) TQ_TRY(write_ac(chroma, 1, 63, 0, 1));
    TQ_TRY(write_ac(0, 6, 63, 0, 2));
    TQ_TRY(write_ac(0, 1, 63, 2, 1));
    TQ_TRY(write_dc(1, 0));
    for (const int component : {1, 2, 0}) TQ_TRY(write_ac(component, 1, 63, 1, 0));
  } else {
    for (int i = 0; i < frame.count; ++i) TQ_TRY(write_ac(i, 1, 5, 0, 2));
    for (int i = 0; i < frame.count; ++i) TQ_TRY(write_ac(i, 6, 63, 0, 2));
    for (int i = 0; i < frame.count; ++i) TQ_TRY(write_ac(i, 1, 63, 2, 1));
    TQ_TRY(write_dc(1, 0));
    for (int i = 0; i < frame.count; ++i) TQ_TRY(write_ac(i, 1, 63, 1, 0));
  }
  return writer.finish_scans();
}

}  // namespace tq::jpeg
