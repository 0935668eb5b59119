// A sequence of calls: what it works on, what it knows, and the calls it can make.
#pragma once

#include <string>

#include "fuzz/fuzz_support.h"
#include "fuzz/image_model.h"
#include "include/tarnquill.h"

namespace tq::fuzz {

inline constexpr std::uint64_t kLargestAllowed = 256 << 10;  // bytes; a larger block is refused
inline constexpr std::int32_t kAborted = -777;               // a callback's own answer
inline constexpr int kMostCalls = 120;
inline constexpr std::size_t kMostImages = 20;
inline constexpr std::size_t kMostCallerBytes = 256 << 10;
inline constexpr int kDeepest = 2;  // callbacks within callbacks

class Session {
 public:
  explicit Session(Bytes input) : in_(input) {}
  void run();

 private:
  // Calls `operation`, maybe with an allocation refused. Callbacks end the refusal.
  template <class Operation>
  std::int64_t call(Operation&& operation);

  // The result must be a success or one of these; out of memory only when there was a reason.
  void expect(std::int64_t result, std::initializer_list<std::int64_t> codes) const;
  bool may_lack_memory() const { return refused_; }
  // Large images have no room for a second form beside them.
  bool may_lack_memory(const ImageModel& model) const {
    return refused_ || model.picture.rows.size() > kLargestAllowed / 4;
  }
  bool nested() const { return depth_ > 0; }
  // No callback has called the library during the last call, which was not made by one either.
  bool undisturbed() const { return !nested() && interferences_ == interferences_before_; }
  bool plain_io() const { return !caller_io_ && !scrambled_; }
  bool plain_decoding() const { return reduction_ == 0 && !sized_ && !cut_; }

  // Images.
  ImageModel* find(std::int32_t handle);
  std::int32_t choose_handle();
  std::int32_t lowest_free() const;
  ImageModel& add_image(std::int32_t handle, const Picture& picture);
  void forget(std::int32_t handle);
  void verify_all() const;

  // Memory that outlives the calls it is given to.
  std::uint8_t* keep(Bytes bytes);
  std::uint8_t* keep_global(Bytes bytes);

  Picture choose_picture();
  std::vector<std::uint8_t> choose_file();
  void finish_decode(std::int64_t result, const Picture* expected);

  void step();
  void create_shell();
  void create_registered();
  void create_device();
  void decode();
  void decode_to_sink();
  void remove();
  void query_image();
  void set_crop();
  void set_display_values();
  void set_transparent();
  void get_raster();
  void put_raster();
  void move_palette();
  void change_form();
  void set_progress();
  void set_decode_settings();
  void set_other_settings();
  void switch_detection();
  void set_caller_io();
  void set_scrambling();
  void query_file();
  void save_to_block();
  void save_to_stream();
  void save_to_name();
  void save_rows();
  void reset_settings();

  // Callbacks: what they answer, after what they have done.
  std::int32_t interfere(std::int32_t answer);
  static Session* running;  // callbacks of streams carry no context
  static std::int32_t IMG_CB_STD on_progress(std::intptr_t context, std::int32_t value);
  static std::int32_t IMG_CB_C on_read(std::int32_t stream, void* buffer, std::int32_t count);
  static std::int32_t IMG_CB_C on_write(std::int32_t stream, void* buffer, std::int32_t count);
  static std::int32_t IMG_CB_C on_seek(std::int32_t stream, std::int32_t offset,
                                       std::int32_t origin);
  static std::int32_t IMG_CB_C on_header(void* header, void* context);
  static std::int32_t IMG_CB_C on_row(void* row, void* context, std::int32_t y, std::int32_t bytes);
  static std::int32_t IMG_CB_C on_supply(void* context, void* dest, std::int32_t y,
                                         std::int32_t bytes);

  Input in_;
  std::vector<ImageModel> images_;
  std::vector<ExactBytes> blocks_;
  std::vector<std::uint8_t*> global_blocks_;
  std::uint64_t next_serial_ = 1;
  int calls_ = 0, depth_ = 0;
  std::uint64_t interferences_ = 0;  // nested calls so far
  std::uint64_t interferences_before_ = 0;
  std::uint32_t callback_calls_ = 0, interference_period_ = 0;
  bool refused_ = false;
  bool caller_io_ = false, scrambled_ = false, progress_ = false;
  std::int32_t reduction_ = 0;
  bool sized_ = false, cut_ = false;
  bool bmp_switched_off_ = false;
  std::int32_t sink_rows_ = 0;
  struct {
    std::vector<std::uint8_t> content;
    std::int64_t position = 0;
    std::int32_t most_per_call = 0, calls_to_failure = 0;
  } caller_;
};

template <class Operation>
std::int64_t Session::call(Operation&& operation) {
  const bool outermost = !nested();
  if (outermost) {
    refused_ = false;
    interferences_before_ = interferences_;
    const std::uint8_t chance = in_.u8();
    if (chance >= 224) memory_probe::refuse_after(chance % 8);
  }
  const std::int64_t result = operation();
  if (outermost) {
    refused_ = refused_ || memory_probe::refused();
    memory_probe::refuse_after(-1);
    TQ_CLAIM(memory_probe::tracked_blocks() == 0);
  }
  return result;
}

// The folder of named files; gone when the program ends.
const std::string& folder();
std::vector<std::uint8_t> file_content(const std::string& name);
void write_file(const std::string& name, Bytes content);

}  // namespace tq::fuzz
