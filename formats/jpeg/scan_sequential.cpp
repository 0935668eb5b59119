// Scans of baseline and extended sequential frames, and what all scans share.
#include <cstring>
#include <limits>

#include "formats/jpeg/scan.h"

namespace tq::formats {
namespace {

const DecodeTable* look_up(HuffmanSlot& slot, HuffmanClass kind, DecodeTable& own,
                           const DecodeTable* known) {
  if (!slot.changed) return known;
  slot.changed = false;
  return &decode_table(slot.spec, kind, own);
}

constexpr std::int16_t to_coefficient(std::int32_t value) {
  return static_cast<std::int16_t>(static_cast<std::uint32_t>(value));
}

// Adds to the predictor and gives the coefficient; false when there is no such code.
bool next_dc(ScanReader& reader, int i, std::int16_t& dc) {
  std::int32_t difference = 0;
  if (!decode_dc(reader.bits(), reader.dc(i), difference)) return false;
  std::int32_t& predictor = reader.predictor(i);
  predictor = static_cast<std::int32_t>(static_cast<std::uint32_t>(predictor) +
                                        static_cast<std::uint32_t>(difference));
  dc = to_coefficient(predictor);
  return true;
}

// The blocks of a component that are being decoded: one may wait for its transform in the other
// room.
struct BlockRooms {
  alignas(32) BlockRoom room[2];
  bool dirty[2] = {true, true};
  int current = 0;

  BlockRoom& clean() {
    if (dirty[current]) std::memset(room[current], 0, kBlock * sizeof(std::int16_t));
    dirty[current] = false;
    return room[current];
  }
};

class StreamingBlocks {
 public:
  StreamingBlocks(ScanReader& reader, Band& band) : reader_(reader), band_(band) {}

  bool decode(int i, int column, int row) {
    if (!reader_.start_block()) return false;
    std::int16_t dc = 0;
    if (!next_dc(reader_, i, dc)) return false;
    const int component = reader_.scan().components[i].index;
    BlockRooms& rooms = rooms_[i];
    BlockRoom& block = rooms.clean();
    const Quantiser& weights = band_.weights(component);
    const DecodedBlock decoded = decode_ac(reader_.bits(), reader_.ac(i), weights, block);
    if (!decoded.valid) return false;
    if (decoded.flat) {
      band_.put_flat(component, column, row, dc);
      return true;
    }
    rooms.dirty[rooms.current] = true;
    block[0] = dc;
    const auto amount = static_cast<std::uint32_t>(dc < 0 ? -dc : dc);
    if (band_.put(component, column, row, block, decoded.magnitude + amount * weights[0])) {
      rooms.current ^= 1;
    }
    return true;
  }

 private:
  ScanReader& reader_;
  Band& band_;
  std::array<BlockRooms, kMostComponents> rooms_;
};

}  // namespace

ScanReader::ScanReader(Tables& tables, const Geometry& geometry, LookupTables& lookups,
                       EntropySource& source)
    : tables_(tables), geometry_(geometry), lookups_(lookups), source_(source) {
  for (std::size_t i = 0; i < kHuffmanSlots; ++i) {
    lookups.dc[i] = look_up(tables.dc[i], HuffmanClass::dc, lookups.own_dc[i], lookups.dc[i]);
    lookups.ac[i] = look_up(tables.ac[i], HuffmanClass::ac, lookups.own_ac[i], lookups.ac[i]);
  }
  source_.start_scan(bits_);
  reset();
}

void ScanReader::reset() {
  predictors_.fill(0);
  end_of_band_run_ = 0;
  until_restart_ = tables_.restart_interval != 0 ? tables_.restart_interval
                                                 : std::numeric_limits<std::int64_t>::max();
}

bool ScanReader::restart() {
  if (!source_.restart(bits_)) return false;
  reset();
  return true;
}

Status stream_scan(ScanReader& reader, Band& band, const RowSink& sink) {
  StreamingBlocks blocks(reader, band);
  const int count = reader.scan().count;
  const int height = reader.geometry().band_height();
  for (int mcu_row = 0; mcu_row < reader.rows(); ++mcu_row) {
    for (int mcu = 0; mcu < reader.columns(); ++mcu) {
      if (!reader.start_mcu()) return kOk;
      for (int i = 0; i < count; ++i) {
        const int h = reader.grid(i).h, v = reader.grid(i).v;
        for (int y = 0; y < v; ++y) {
          for (int x = 0; x < h; ++x) {
            if (!blocks.decode(i, mcu * h + x, y)) return kOk;
          }
        }
      }
    }
    if (!reader.intact()) return kOk;
    band.flush();
    TQ_TRY(band.deliver(sink, mcu_row * height));
  }
  return kOk;
}

void store_sequential_scan(ScanReader& reader, CoefficientStore& store) {
  const auto decode = [&](int i, int column, int row) {
    if (!reader.start_block()) return false;
    alignas(32) BlockRoom block = {};
    if (!next_dc(reader, i, block[0])) return false;
    const Quantiser unweighted{};
    if (!decode_ac(reader.bits(), reader.ac(i), unweighted, block).valid || !reader.intact()) {
      return false;
    }
    std::int16_t* const blocks = store.row(reader.scan().components[i].index, row);
    std::memcpy(blocks + std::ptrdiff_t{column} * kBlock, block, kBlock * sizeof(std::int16_t));
    return true;
  };
  for (int mcu_row = 0; mcu_row < reader.rows(); ++mcu_row) {
    for (int mcu = 0; mcu < reader.columns(); ++mcu) {
      if (!reader.start_mcu()) return;
      for (int i = 0; i < reader.scan().count; ++i) {
        const bool together = reader.interleaved();
        const int h = together ? reader.grid(i).h : 1, v = together ? reader.grid(i).v : 1;
        for (int y = 0; y < v; ++y) {
          for (int x = 0; x < h; ++x) {
            if (!decode(i, mcu * h + x, mcu_row * v + y)) return;
          }
        }
      }
    }
  }
}

}  // namespace tq::formats
