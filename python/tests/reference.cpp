// The C++ library's answers for photos given as raw pixels, for comparison with the Python
// package. Standard input: photos, each a little-endian u32 width and height, then
// width * height * 3 bytes of blue-green-red rows.
//   orvane_reference signatures      one line per photo: its signature stream in hex
//   orvane_reference classify        stores every photo but the last under ids 1, 2, ...,
//                                    asks with the last: lines "<mode> <id> <score as %a>"
//                                    for mode 0, then mode 1 with all results
//   orvane_reference time <count>    extracts the first photo count times after one warm-up
//                                    run; prints the mean wall and processor seconds per
//                                    extract
#include <orvane.h>

#include <chrono>
#include <ctime>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Photo {
  int width = 0;
  int height = 0;
  std::vector<unsigned char> bgr;
};

uint32_t readWord(std::istream& in) {
  unsigned char b[4] = {};
  in.read(reinterpret_cast<char*>(b), 4);
  return b[0] | b[1] << 8 | b[2] << 16 | static_cast<uint32_t>(b[3]) << 24;
}

std::vector<Photo> readPhotos(std::istream& in) {
  std::vector<Photo> photos;
  while (in.peek() != EOF) {
    Photo photo;
    photo.width = static_cast<int>(readWord(in));
    photo.height = static_cast<int>(readWord(in));
    photo.bgr.resize(static_cast<size_t>(photo.width) * photo.height * 3);
    in.read(reinterpret_cast<char*>(photo.bgr.data()), static_cast<std::streamsize>(photo.bgr.size()));
    if (!in) throw std::runtime_error("short photo");
    photos.push_back(std::move(photo));
  }
  return photos;
}

const CFIDContainer& extract(CFIDExtractor& extractor, const Photo& photo) {
  return extractor.extract(photo.bgr.data(), photo.width, photo.height, photo.width * 3, 0, 0);
}

void printMatches(int mode, const std::vector<CFIDMatch>& matches) {
  for (const CFIDMatch& m : matches) std::printf("%d %d %a\n", mode, m.id, static_cast<double>(m.score));
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
      printMatches(0, database.classify(query, 0, 0));
      printMatches(1, database.classify(query, 0, 1));
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
