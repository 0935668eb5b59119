// What the pages of a document have in common: the numbers of their objects, the text that lists
// them, and where the picture goes.
#pragma once

#include <cstdint>

namespace tq::formats {

// Every page owns seven objects in a row; the last page's catalog and page tree are the document's.
enum PageObject : std::int32_t {
  kCatalog = 1,
  kProcedureSet = 2,
  kPageTree = 3,
  kPage = 4,
  kImage = 5,
  kImageLength = 6,
  kContents = 7,
  kObjectsPerPage = 7,
};

constexpr std::int32_t object_number(std::int32_t page, PageObject object) {
  return kObjectsPerPage * page + object;
}

// The document's catalog and page tree, by which it is known again: each object's number first.
inline constexpr char kObjectText[] = "%d 0 obj\r\n";
inline constexpr char kCatalogText[] = "<<\r\n/Type /Catalog\r\n/Pages %d 0 R\r\n>>\r\n";
inline constexpr char kPageTreeText[] = "<<\r\n/Type /Pages\r\n/Kids [";
inline constexpr char kKidText[] = "%d 0 R \r\n";
inline constexpr char kPageTreeEndText[] = "]\r\n/Count %d\r\n/MediaBox [ 0 0 612 792 ]\r\n>>\r\n";

// In points from the lower left corner of a page of 612 x 792 points.
struct Placement {
  std::int32_t width, height, x, y;
};

// Centred, a pixel being a point; pictures as large as the page and larger are scaled to fit it.
constexpr Placement place(std::int32_t width, std::int32_t height) {
  constexpr std::int32_t kPageWidth = 612, kPageHeight = 792;
  Placement placed{width, height, 0, 0};
  if (width >= kPageWidth || height >= kPageHeight) {
    const std::int64_t scaled_height = std::int64_t{kPageWidth} * height / width;
    if (scaled_height <= kPageHeight) {
      placed.width = kPageWidth;
      placed.height = static_cast<std::int32_t>(scaled_height);
    } else {
      placed.width = static_cast<std::int32_t>(std::int64_t{kPageHeight} * width / height);
      placed.height = kPageHeight;
    }
  }
  placed.x = (kPageWidth - placed.width) / 2;
  placed.y = (kPageHeight - placed.height) / 2;
  return placed;
}

}  // namespace tq::formats
