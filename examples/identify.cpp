// identify: a small host of the orvane library.
//
// It draws a few photos, stores their signatures, and asks the database which stored photo
// a changed copy is: the same photo (mode 0) and the nearest ones (mode 1). It also keeps a
// copy of a container across extracts, and sends a signature through a stream.
// Exit status 0 when every answer is the expected one.
#include <orvane.h>

#include <cstdio>
#include <sstream>
#include <vector>

namespace {

struct Photo {
  int width;
  int height;
  std::vector<unsigned char> bgr;
};

// A photo with smooth colour gradients and a bright disc, different for every seed.
Photo drawPhoto(int width, int height, int seed) {
  Photo photo{width, height, std::vector<unsigned char>(static_cast<size_t>(width) * height * 3)};
  const int cx = width * (1 + seed % 3) / 4;
  const int cy = height * (1 + seed % 2) / 3;
  const int radius = height / (3 + seed % 2);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      unsigned char* p = &photo.bgr[(static_cast<size_t>(y) * width + x) * 3];
      const bool inDisc = (x - cx) * (x - cx) + (y - cy) * (y - cy) < radius * radius;
      p[0] = static_cast<unsigned char>((x * (seed + 1) * 255 / width) % 256);
      p[1] = static_cast<unsigned char>((y * 200 / height + seed * 40) % 256);
      p[2] = inDisc ? 250 : static_cast<unsigned char>(((x + y) * 90 / (width + height)) + 30 * seed);
    }
  }
  return photo;
}

// The same scene, made a little brighter: what a re-encoded copy of a photo looks like.
Photo brighter(const Photo& photo) {
  Photo copy = photo;
  for (unsigned char& v : copy.bgr) v = static_cast<unsigned char>(v < 250 ? v + 5 : 255);
  return copy;
}

const CFIDContainer& extract(CFIDExtractor& extractor, const Photo& photo) {
  return extractor.extract(photo.bgr.data(), photo.width, photo.height, photo.width * 3, 0, 0);
}

void print(const char* what, const std::vector<CFIDMatch>& matches) {
  std::printf("%s:", what);
  for (const CFIDMatch& m : matches) std::printf(" id %d (score %.4f)", m.id, m.score);
  std::printf("%s\n", matches.empty() ? " none" : "");
}

}  // namespace

int main() {
  try {
    std::printf("%s\n", CFIDContainer::getLibraryVersion().c_str());
    CFIDExtractor extractor(1);
    CFIDDatabase database(1, 16);

    std::vector<CFIDContainer> kept;
    for (int id = 1; id <= 4; ++id) {
      const Photo photo = drawPhoto(640, 480, id);
      const CFIDContainer& signature = extract(extractor, photo);
      database.addSignature(signature, id, 0);
      kept.push_back(signature);  // a copy survives the next extract
    }
    std::printf("stored %u photos\n", database.size());

    const CFIDContainer& query = extract(extractor, brighter(drawPhoto(640, 480, 3)));
    const std::vector<CFIDMatch>& same = database.classify(query, 0, 0);
    print("same photo", same);
    if (same.size() != 1 || same[0].id != 3) return 1;

    const std::vector<CFIDMatch> nearest = database.classify(query, 2, 1);
    print("two nearest", nearest);
    if (nearest.size() != 2 || nearest[0].id != 3) return 1;

    // A kept copy is still the signature of photo 1: it is its own nearest photo at 0.
    const std::vector<CFIDMatch> first = database.classify(kept[0], 1, 1);
    print("kept copy of photo 1", first);
    if (first.size() != 1 || first[0].id != 1 || first[0].score != 0.0f) return 1;

    // Through a stream and back: the signature reads as the one written.
    std::stringstream stream;
    kept[1].write(stream);
    CFIDContainer restored;
    restored.read(stream);
    const std::vector<CFIDMatch> again = database.classify(restored, 1, 1);
    print("read back photo 2", again);
    std::printf("feature version %s, stream of %zu bytes\n",
                restored.getFeatureVersion().c_str(), stream.str().size());
    if (again.size() != 1 || again[0].id != 2 || again[0].score != 0.0f) return 1;
    return 0;
  } catch (const FID_Exception& e) {
    std::fprintf(stderr, "orvane: %s\n", e.what());
    return 1;
  }
}
