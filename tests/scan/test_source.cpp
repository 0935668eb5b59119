// A TWAIN source for the tests under Wine: three pages by handle, no capability, and real messages.
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <cstring>

#include "scan/twain.h"

namespace {

using namespace tq::scan::twain;

Identity program, self;
int left = 0;

HGLOBAL make_page(int number) {
  struct Dib {
    BITMAPINFOHEADER header;
    unsigned char pixels[40][152];
  };
  const HGLOBAL handle = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, sizeof(Dib));
  auto* const dib = static_cast<Dib*>(GlobalLock(handle));
  dib->header.biSize = sizeof dib->header;
  dib->header.biWidth = 50;
  dib->header.biHeight = 40;
  dib->header.biPlanes = 1;
  dib->header.biBitCount = 24;
  for (auto& row : dib->pixels) std::memset(row, 16 * number, 150);
  GlobalUnlock(handle);
  return handle;
}

void tell(Message message) {
  const auto manager = reinterpret_cast<Entry>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("TWAIN_32.DLL"), "DSM_Entry")));
  manager(&self, &program, kControl, kNull, message, nullptr);
}

std::uint16_t identify(Message message, const Identity* origin, Identity& identity) {
  if (message == kGet) {
    const std::uint32_t id = identity.id;
    identity = {};
    identity.id = id;
    identity.protocol_major = 1;
    identity.protocol_minor = 9;
    identity.groups = kControl | kImage;
    std::strcpy(identity.manufacturer, "Tarnquill");
    std::strcpy(identity.family, "Tests");
    std::strcpy(identity.name, "Tarnquill test source");
  }
  if (message == kOpenSource) {
    program = *origin;
    self = identity;
  }
  return kSuccess;
}

}  // namespace

extern "C" __declspec(dllexport) std::uint16_t WINAPI
    DS_Entry(Identity* origin, std::uint32_t /*group*/, std::uint16_t data, std::uint16_t message,
             void* memory) {
  switch (data) {
    case kIdentity:
      return identify(static_cast<Message>(message), origin, *static_cast<Identity*>(memory));
    case kStatus:
      *static_cast<Status*>(memory) = {13, 0};  // no such capability
      return kSuccess;
    case kUserInterface:
      if (message == kEnable) {
        left = 3;
        tell(kTransferReady);
      }
      return kSuccess;
    case kEvent:
      static_cast<Event*>(memory)->message = kNull;
      return kNoSourceEvent;
    case kImageInfo: {
      ImageInfo info{};
      info.x_resolution = info.y_resolution = {300, 0};
      info.width = 50;
      info.length = 40;
      info.samples = 3;
      info.pixel_bits = 24;
      info.pixel_type = kRgb;
      *static_cast<ImageInfo*>(memory) = info;
      return kSuccess;
    }
    case kImageNative:
      *static_cast<Handle*>(memory) = make_page(4 - left);
      return kTransferDone;
    case kPendingTransfers:
      if (message == kEndTransfer) --left;
      if (message == kReset) left = 0;
      static_cast<PendingTransfers*>(memory)->count = static_cast<std::uint16_t>(left);
      return kSuccess;
    default:
      return kFailure;
  }
}
