// The part of TWAIN's interface (TWAIN 1.9 and 2.4) that is used here. Structures are packed to 2 bytes.
#pragma once

#include <cstdint>

#include "include/tarnquill.h"

namespace tq::scan::twain {

using Handle = void*;
using Text32 = char[34];
using Text255 = char[256];

#pragma pack(push, 2)

struct Fix32 {
  std::int16_t whole;
  std::uint16_t fraction;
};

struct Version {
  std::uint16_t major, minor, language, country;
  Text32 info;
};

struct Identity {
  std::uint32_t id;
  Version version;
  std::uint16_t protocol_major, protocol_minor;
  std::uint32_t groups;
  Text32 manufacturer, family, name;
};
static_assert(sizeof(Identity) == 156);

struct UserInterface {
  std::uint16_t show, modal;
  Handle parent;
};

struct Event {
  void* event;
  std::uint16_t message;
};

struct Status {
  std::uint16_t condition, reserved;
};

struct PendingTransfers {
  std::uint16_t count;
  std::uint32_t end_of_job;
};
static_assert(sizeof(PendingTransfers) == 6);

struct Capability {
  std::uint16_t capability, container;
  Handle handle;
};

struct OneValue {
  std::uint16_t type;
  std::uint32_t item;
};
static_assert(sizeof(OneValue) == 6);

struct RangeValues {
  std::uint16_t type;
  std::uint32_t least, most, step, initial, current;
};
static_assert(sizeof(RangeValues) == 22);

struct EnumerationHead {  // items follow
  std::uint16_t type;
  std::uint32_t count, current, initial;
};
static_assert(sizeof(EnumerationHead) == 14);

struct ArrayHead {  // items follow
  std::uint16_t type;
  std::uint32_t count;
};
static_assert(sizeof(ArrayHead) == 6);

struct Frame {
  Fix32 left, top, right, bottom;
};

struct ImageLayout {
  Frame frame;
  std::uint32_t document, page, number;
};
static_assert(sizeof(ImageLayout) == 28);

struct ImageInfo {
  Fix32 x_resolution, y_resolution;
  std::int32_t width, length;
  std::int16_t samples, sample_bits[8], pixel_bits;
  std::uint16_t planar;
  std::int16_t pixel_type;
  std::uint16_t compression;
};
static_assert(sizeof(ImageInfo) == 42);

struct SetupMemory {
  std::uint32_t least, most, preferred;
};

struct Memory {
  std::uint32_t flags, length;
  void* address;
};

struct MemoryTransfer {
  std::uint16_t compression;
  std::uint32_t row_bytes, columns, rows, x, y, written;
  Memory memory;
};

struct SetupFile {
  Text255 name;
  std::uint16_t format;
  std::int16_t volume;
};
static_assert(sizeof(SetupFile) == 260);

struct PaletteEntry {
  std::uint8_t index, red, green, blue;
};
struct Palette8 {
  std::uint16_t count, type;
  PaletteEntry entries[256];
};
static_assert(sizeof(Palette8) == 1028);

using Entry = std::uint16_t(IMG_CALL*)(Identity* origin, Identity* destination, std::uint32_t group,
                                       std::uint16_t data, std::uint16_t message, void* memory);

struct EntryPoint {
  std::uint32_t size;
  Entry entry;
  Handle(IMG_CALL* allocate)(std::uint32_t bytes);
  void(IMG_CALL* free)(Handle handle);
  void*(IMG_CALL* lock)(Handle handle);
  void(IMG_CALL* unlock)(Handle handle);
};

#pragma pack(pop)

static_assert(sizeof(void*) != 4 ||
              (sizeof(UserInterface) == 8 && sizeof(Event) == 6 && sizeof(Capability) == 8 &&
               sizeof(MemoryTransfer) == 38 && sizeof(EntryPoint) == 24));

enum Group : std::uint32_t {
  kControl = 1,
  kImage = 2,
  kManager2 = 0x10000000,
  kProgram2 = 0x20000000,
};

enum Data : std::uint16_t {
  kNull = 0x0,
  kCapability = 0x1,
  kEvent = 0x2,
  kIdentity = 0x3,
  kParent = 0x4,
  kPendingTransfers = 0x5,
  kSetupMemory = 0x6,
  kSetupFile = 0x7,
  kStatus = 0x8,
  kUserInterface = 0x9,
  kImageInfo = 0x101,
  kImageLayout = 0x102,
  kImageMemory = 0x103,
  kImageNative = 0x104,
  kImageFile = 0x105,
  kPalette8 = 0x10A,
  kEntryPoint = 0x403,
};

enum Message : std::uint16_t {
  kGet = 0x1,
  kGetCurrent = 0x2,
  kGetDefault = 0x3,
  kGetFirst = 0x4,
  kGetNext = 0x5,
  kSet = 0x6,
  kReset = 0x7,
  kTransferReady = 0x101,
  kCloseRequest = 0x102,
  kCloseOk = 0x103,
  kDeviceEvent = 0x104,
  kOpenManager = 0x301,
  kCloseManager = 0x302,
  kOpenSource = 0x401,
  kCloseSource = 0x402,
  kUserSelect = 0x403,
  kDisable = 0x501,
  kEnable = 0x502,
  kProcessEvent = 0x601,
  kEndTransfer = 0x701,
  kStopFeeder = 0x702,
};

enum Result : std::uint16_t {
  kSuccess = 0,
  kFailure = 1,
  kCheckStatus = 2,
  kCancel = 3,
  kSourceEvent = 4,
  kNoSourceEvent = 5,
  kTransferDone = 6,
  kEndOfList = 7,
};

enum Condition : std::uint16_t {
  kNoCondition = 0,
  kBummer = 1,
  kLowMemory = 2,
  kNoSource = 3,
  kMaxConnections = 4,
  kOperationError = 5,
  kSequenceError = 11,
  kPaperJam = 20,
  kPaperDoubleFeed = 21,
  kCheckDevice = 23,
  kInterlock = 24,
  kNoMedia = 29,
};

enum ItemType : std::uint16_t {
  kInt8 = 0,
  kInt16 = 1,
  kInt32 = 2,
  kUint8 = 3,
  kUint16 = 4,
  kUint32 = 5,
  kBool = 6,
  kFix32 = 7,
};

enum Container : std::uint16_t { kArray = 3, kEnumeration = 4, kOneValue = 5, kRange = 6 };

enum CapabilityNumber : std::uint16_t {
  kTransferCount = 0x1,
  kPixelType = 0x101,
  kUnits = 0x102,
  kMechanism = 0x103,
  kFeederEnabled = 0x1002,
  kFeederLoaded = 0x1003,
  kAutoFeed = 0x1007,
  kIndicators = 0x100B,
  kPaperDetectable = 0x100D,
  kDuplex = 0x1012,
  kDuplexEnabled = 0x1013,
  kBrightness = 0x1101,
  kContrast = 0x1103,
  kPhysicalWidth = 0x1111,
  kPhysicalHeight = 0x1112,
  kXResolution = 0x1118,
  kYResolution = 0x1119,
  kPixelFlavor = 0x111F,
  kThreshold = 0x1123,
  kBitDepth = 0x112B,
};

enum PixelType : std::int16_t { kBlackWhite = 0, kGrey = 1, kRgb = 2, kPalette = 3 };
enum Mechanism : std::uint16_t { kNative = 0, kFile = 1, kMemory = 2 };
enum FileFormat : std::uint16_t { kTiff = 0, kBmp = 2 };
enum MemoryFlags : std::uint32_t { kProgramOwns = 1, kPointer = 8 };

inline constexpr std::uint32_t kAnything = 0xFFFFFFFF;
inline constexpr std::uint16_t kManyMore = 0xFFFF;  // pages, a number that is not known

}  // namespace tq::scan::twain
