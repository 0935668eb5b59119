#include "tests/support/corpus.h"

#include <fstream>
#include <stdexcept>

#include "include/tarnquill.h"
#include "tests/support/scratch_folder.h"

namespace tq::test {

const std::vector<CorpusImage>& corpus_images(const std::string& folder) {
  static const std::vector<CorpusImage> images = [&] {
    std::vector<CorpusImage> read;
    std::ifstream list(folder + "/digests.txt");
    CorpusImage image;
    std::string programs, rule;
    while (list >> image.name >> image.page >> image.code >> image.result >> image.width >>
           image.height >> image.pixels >> programs >> rule) {
      read.push_back(image);
    }
    if (!list.eof() || read.empty()) throw std::runtime_error("no list in " + folder);
    return read;
  }();
  return images;
}

const std::vector<CorpusFile>& corpus_files(const std::string& folder) {
  static const std::vector<CorpusFile> files = [&] {
    std::vector<CorpusFile> read;
    for (const CorpusImage& image : corpus_images(folder)) {
      if (image.page == 0) {
        read.push_back({image.name, file_content(folder + '/' + image.name), 1, image.result > 0,
                        image.code >= IMG_TYPE_PNM});
      } else {
        ++read.back().pages;
      }
    }
    return read;
  }();
  return files;
}

}  // namespace tq::test
