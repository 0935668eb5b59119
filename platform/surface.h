// Device contexts of the window system: pixels go there as they are. There are none outside Windows.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tq::platform {

struct Box {
  std::int32_t x = 0, y = 0, width = 0, height = 0;
};

struct Surface {
  std::int32_t width = 0, height = 0;  // that can be drawn on, device pixels
  std::int32_t dpi_x = 0, dpi_y = 0;
  std::int32_t bits = 0;  // a pixel
  bool readable = false;  // what is there can be asked for
};

// False for what is no device context.
bool query_surface(void* context, Surface& found);

// Draws in device pixels, whatever the context's own units are, which come back at the end.
class Drawing {
 public:
  explicit Drawing(void* context);
  Drawing(const Drawing&) = delete;
  Drawing& operator=(const Drawing&) = delete;
  ~Drawing();

  // From the context's units; the one is to be asked before begin(), the others after it.
  bool to_device(Box& box) const;
  bool begin();

  Box clip() const;  // what may be seen of what is drawn

  // A packed DIB's header with its palette, and its rows from the top: `from` of them to a place of the
  // same size. False when the system refuses.
  bool put(const Box& to, const void* header, const void* rows, std::int32_t from_x,
           std::uint32_t operation) const;

  // The same from rows from the bottom, all of them, to a place of any size.
  bool stretch(const Box& to, const void* header, const void* rows, std::uint32_t operation) const;

  // What is there, as rows of blue, green, red, unused from the top.
  bool read(const Box& from, void* rows) const;

 private:
  void* context_;
  int saved_ = 0;
};

// A printer's context with a document; false and, in `no_printer`, whether there is none of that name.
class PrintJob {
 public:
  PrintJob() = default;
  PrintJob(const PrintJob&) = delete;
  PrintJob& operator=(const PrintJob&) = delete;
  ~PrintJob();  // what has not ended is given up

  // Null: the default printer. `copies` becomes how often the pages have to be sent.
  bool open(const char* printer, std::int32_t& copies, bool& no_printer);
  bool begin(const char* title, const char* output_file);
  void* begin_page(bool landscape);  // the context, or null
  bool end_page();
  bool end();

 private:
  void* context_ = nullptr;
  void* mode_ = nullptr;  // how the printer is set, a block
  bool begun_ = false;
};

void wait_milliseconds(std::int32_t time);

// A block of one of the clipboard's formats.
struct ClipboardItem {
  std::uint32_t format = 0;
  const void* bytes = nullptr;
  std::size_t size = 0;
};
inline constexpr std::uint32_t kClipboardDib = 8, kClipboardDibV5 = 17;

enum class Clipboard : std::uint8_t { done, taken, no_memory, nothing };

// Replaces all that is there.
Clipboard put_on_clipboard(void* window, const ClipboardItem* items, int count);

// Hands the first DIB that is there to `take`.
Clipboard take_from_clipboard(void* window,
                              void (*take)(void* self, const void* bytes, std::size_t size),
                              void* self);

// Whether there is a window system at all.
bool has_surfaces();

}  // namespace tq::platform
