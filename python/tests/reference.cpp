// The C++ library's answers for raw photos, to compare the Python package with. Standard
// input: photos, each a little-endian u32 width and height, then blue-green-red rows.
//   signatures    a line per photo: its signature stream in hex
//   classify      stores every photo but the last under ids 1, 2, ..., asks with the last:
//                 lines "<mode> <id> <score as %a>", mode 0, then mode 1 with all results
//   time <count>  the mean wall and processor seconds of count extracts of the first photo,
//                 after one warm-up run
#include <orvane.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

struct Photo {
  int width = 0, height = 0;
  std::vector<unsigned char> bgr;
};

std::vector<Photo> readPhotos(std::istream& in) {
  std::vector<Photo> photos;
  unsigned char size[8];
  while (in.read(reinterpret_cast<char*>(size), sizeof size)) {
    Photo photo;
    photo.width = size[0] | size[1] << 8 | size[2] << 16 | (size[3] & 0x7f) << 24;
    photo.height = size[4] | size[5] << 8 | size[6] << 16 | (size[7] & 0x7f) << 24;
    photo.bgr.resize(static_cast<size_t>(photo.width) * photo.height * 3);
    if (!in.read(reinterpret_cast<char*>(photo.bgr.data()), photo.bgr.size())) {
      throw std::runtime_error("short photo");
    }
    photos.push_back(std::move(photo));
  }
  return photos;
}

const CFIDContainer& extract(CFIDExtractor& extractor, const Photo& photo) {
  return extractor.extract(photo.bgr.data(), photo.width, photo.height, photo.width * 3, 0, 0);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string command = argc > 1 ? argv[1] : "";
  try {
    const std::vector<Photo> photos = readPhotos(std::cin);
    CFIDExtractor extractor(1);
    if (command == "signatures") {
      for (const Photo& photo : photos) {
        std::ostringstream out;
        extract(extractor, photo).write(out);
        for (unsigned char c : out.str()) std::printf("%02x", c);
        std::printf("\n");
      }
    } else if (command == "classify" && !photos.empty()) {
      CFIDDatabase database(1, 0);
      for (size_t i = 0; i + 1 < photos.size(); ++i) {
        database.addSignature(extract(extractor, photos[i]), static_cast<int>(i + 1), 0);
      }
      const CFIDContainer query = extract(extractor, photos.back());
      for (int mode : {0, 1}) {
        for (const CFIDMatch& m : database.classify(query, 0, mode)) {
          std::printf("%d %d %a\n", mode, m.id, static_cast<double>(m.score));
        }
      }
    } else if (command == "time" && argc > 2 && !photos.empty()) {
      const int count = std::stoi(argv[2]);
      extract(extractor, photos[0]);
      const auto start = std::chrono::steady_clock::now();
      const std::clock_t cpuStart = std::clock();
      for (int i = 0; i < count; ++i) extract(extractor, photos[0]);
      const double cpu = static_cast<double>(std::clock() - cpuStart) / CLOCKS_PER_SEC;
      const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
      std::printf("%.9f %.9f\n", wall.count() / count, cpu / count);
    } else {
      std::fprintf(stderr, "usage: orvane_reference signatures|classify|time <count> < photos\n");
      return 2;
    }
  } catch (const std::exception& e) {
    std::fprintf(stderr, "orvane_reference: %s\n", e.what());
    return 1;
  }
  return 0;
}
