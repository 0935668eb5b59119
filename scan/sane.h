// The part of SANE's interface (SANE Standard 1.06) that is used here: 32-bit words, plain structures.
#pragma once

#include <cstdint>

namespace tq::scan::sane {

using Word = std::int32_t;
using Handle = void*;

enum Status : std::int32_t {
  kGood = 0,
  kUnsupported = 1,
  kCancelled = 2,
  kDeviceBusy = 3,
  kInvalid = 4,
  kEndOfData = 5,
  kJammed = 6,
  kNoDocuments = 7,
  kCoverOpen = 8,
  kIoError = 9,
  kNoMemory = 10,
  kAccessDenied = 11,
};

enum Type : std::int32_t { kBool = 0, kInt = 1, kFixed = 2, kString = 3 };
enum Unit : std::int32_t { kNoUnit = 0, kMillimetres = 3, kDpi = 4 };
enum Action : std::int32_t { kGet = 0, kSet = 1 };
enum Info : Word { kInexact = 1, kReloadOptions = 2, kReloadParameters = 4 };
enum Capability : Word { kSoftSelect = 1, kInactive = 32 };
enum Constraint : std::int32_t { kNoConstraint = 0, kRange = 1, kWordList = 2, kStringList = 3 };
enum Format : std::int32_t { kGray = 0, kRgb = 1, kRed = 2, kGreen = 3, kBlue = 4 };

struct Device {
  const char *name, *vendor, *model, *type;
};

struct Range {
  Word min, max, quant;
};

struct Option {
  const char *name, *title, *description;
  std::int32_t type, unit;
  Word size;  // bytes of the value
  Word capabilities;
  std::int32_t constraint_type;
  union {
    const char* const* strings;  // null ends
    const Word* words;           // the first is their number
    const Range* range;
  } constraint;
};

struct Parameters {
  std::int32_t format;
  Word last_frame, bytes_per_line, pixels_per_line, lines, depth;
};

struct Functions {
  std::int32_t (*init)(Word* version, void* authorise);
  void (*exit)();
  std::int32_t (*get_devices)(const Device* const** list, Word local_only);
  std::int32_t (*open)(const char* name, Handle* handle);
  void (*close)(Handle handle);
  const Option* (*get_option_descriptor)(Handle handle, Word option);
  std::int32_t (*control_option)(Handle handle, Word option, std::int32_t action, void* value,
                                 Word* info);
  std::int32_t (*start)(Handle handle);
  std::int32_t (*get_parameters)(Handle handle, Parameters* parameters);
  std::int32_t (*read)(Handle handle, std::uint8_t* buffer, Word room, Word* bytes);
  void (*cancel)(Handle handle);
};

}  // namespace tq::scan::sane
