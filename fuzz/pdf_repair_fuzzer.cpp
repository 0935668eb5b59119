// Documents of whole objects in any order, cut and spliced, so that their tables have to be made anew.
#include <string_view>

#include "fuzz/pdf_pages.h"

namespace tq::fuzz {
namespace {

constexpr std::string_view kParts[] = {
    "1 0 obj<</Type/Catalog/Pages 2 0 R>>endobj\n",
    "2 0 obj<</Type/Pages/Kids[3 0 R 3 0 R 4 0 R]/Count 2>>endobj\n",
    "3 0 obj<</Type/Page/Parent 2 0 R/Contents 5 0 R/Resources<</XObject<</P 6 0 R/F 7 0 "
    "R>>>>>>endobj\n",
    "4 0 obj<</Kids[3 0 R 2 0 R]/Count 1/Rotate 90/CropBox[0 0 5 5]>>endobj\n",
    "5 0 obj<</Length 8 0 R>>stream\nq 9 0 0 9 0 0 cm /P Do Q /F Do\nendstream endobj\n",
    "6 0 obj<</Subtype/Image/Width 4/Height 3/BitsPerComponent 8/ColorSpace/DeviceGray/Length 12>>"
    "stream\nabcdefghijkl\nendstream\nendobj\n",
    "7 0 obj<</Subtype/Form/BBox[0 0 9 9]/Matrix[2 0 0 2 0 0]/Length 5>>stream\n/P Do\nendstream "
    "endobj",
    "8 0 obj 33 endobj\n",
    "9 0 obj<</Type/ObjStm/N 2/First 8/Length 60>>stream\n3 0 8 5 <</Type/Page/Contents 5 0 R>> 31"
    "\nendstream endobj\n",
    "6 0 obj<</Subtype/Image/ImageMask true/Width 9/Height 2/Filter/AHx/Length 9>>stream\nF0F0C3C3>"
    "\nendstream\nendobj\n",
    "10 0 obj<</Type/XRef/W[1 2 1]/Size 4/Root 1 0 R/Prev 9/Length "
    "16>>stream\n\x01\x00\x09\x00\x01\x00\x40"
    "\x00\x02\x00\x09\x00\x00\x00\x00\x00\nendstream endobj\n",
    "trailer<</Root 1 0 R/Size 11/Prev 0>>\n",
    "trailer<</Root 4 0 R/ID[(a)(a)]/Encrypt<</Filter/Standard/V 1/R 2/O()/U()/P -1>>>>\n",
    "xref\n0 3\n0000000000 65535 f \n0000000009 00000 n \n0000000052 00000 n \n",
    "startxref\n9\n%%EOF\n",
    "5 0 obj<</Length 99>>stream\nBI/W 2/H 2/BPC 8/CS/G ID abcd EI 0 Tr (x) Tj\nendstream endobj ",
};

}  // namespace

void fuzz(Bytes bytes) {
  Input in(bytes);
  constexpr std::string_view kHeader = "%PDF-1.4\n";
  Memory document(kHeader.begin(), kHeader.end());
  while (!in.empty() && document.size() < 20000) {
    const std::uint8_t choice = in.u8();
    std::string_view part = kParts[choice % std::size(kParts)];
    const std::uint8_t way = choice / std::size(kParts);
    if (way >= 12) part = {part.data(), in.u8() % part.size()};
    document.insert(document.end(), part.begin(), part.end());
    if (way == 11) document[in.u8() * 3U % document.size()] = in.u8();
  }
  TQ_CLAIM(digest_of_pages(document) == digest_of_pages(document));
}

}  // namespace tq::fuzz
