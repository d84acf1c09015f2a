// Arbitrary bytes as one chunk of a library file's vectors cache, or as a photo's stored
// signature: a small library is written once; each input replaces one chunk row or one
// signature, and the library's vectors are read back and searched. The only failure that may
// come out is the tool's own error. A chunk that is taken as it is must not repeat a photo; the
// photos of the other chunks must read as they were stored.
//
// Input: byte 0 picks the chunk (bits 0-1: 0, 1, 2 or -1; only 0 and 1 hold photos) and,
// with bit 2, stretches the data to the length the ids call for, so that well-formed chunks
// of nonsense floats are reached too; bytes 1-2 and 3-4 (little-endian) are the lengths of
// the ids and the unreadable ids; the rest is the data. With bit 3 of byte 0, the data is
// instead the signature of photo 4, whose chunk 0 is then built again from the signatures.
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "orvane.h"
#include "search/CSearchEngine.h"
#include "tools/orvane/CPhotoLibrary.h"
#include "tools/orvane/CToolError.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t kMaxInput = 1 << 16;
constexpr size_t kMaxStretchedIds = 16;
// Photo ids of the library: chunk 0 holds 1-4 (4 cannot be read), chunk 1 holds 4099.
constexpr std::int64_t kChunks[] = {0, 1, 2, -1};

std::string signatureOf(int pattern) {
  constexpr int kWidth = 64;
  constexpr int kHeight = 48;
  std::vector<unsigned char> bgr(kWidth * kHeight * 3);
  for (size_t i = 0; i < bgr.size(); ++i) {
    bgr[i] =
        static_cast<unsigned char>((i * (7 + 4 * pattern) + (i / (3 * kWidth)) * pattern) % 251);
  }
  CFIDExtractor extractor(1);
  std::ostringstream out;
  extractor.extract(bgr.data(), kWidth, kHeight, kWidth * 3, 0, 0).write(out);
  return out.str();
}

void sql(const std::string& file, const char* statements) {
  sqlite3* db = nullptr;
  if (sqlite3_open(file.c_str(), &db) != SQLITE_OK ||
      sqlite3_exec(db, statements, nullptr, nullptr, nullptr) != SQLITE_OK) {
    std::abort();
  }
  sqlite3_close(db);
}

struct SFixture {
  fs::path dir;
  std::string file;
  std::string bytes;     // the library file with its cache complete
  CPhotoVectors stored;  // what it reads
  ~SFixture() { fs::remove_all(dir); }
};

const SFixture& fixture() {
  static SFixture made = [] {
    SFixture f;
    std::string pattern =
        (fs::exists("/dev/shm") ? "/dev/shm" : "/tmp") + std::string("/orvane-vectors-fuzz-XXXXXX");
    if (mkdtemp(pattern.data()) == nullptr) std::abort();
    f.dir = pattern;
    f.file = (f.dir / "library.orvane").string();
    {
      CPhotoLibrary library(f.file, CPhotoLibrary::Access::kCreate);
      library.begin();
      const std::string same = signatureOf(1);
      library.putPhoto("/photos/a.jpg", {1, 1}, same);
      library.putPhoto("/photos/b.jpg", {1, 1}, same);
      library.putPhoto("/photos/c.jpg", {1, 1}, signatureOf(2));
      library.putPhoto("/photos/d.jpg", {1, 1}, "not a signature");
      library.putPhoto("/photos/e.jpg", {1, 1}, signatureOf(3));
      library.commit();
    }
    sql(f.file, "UPDATE photo SET id = 4099 WHERE id = 5");
    {
      CPhotoLibrary library(f.file, CPhotoLibrary::Access::kExisting);
      library.refreshCache();
      f.stored = library.loadVectors(nullptr);
    }
    std::ifstream in(f.file, std::ios::binary);
    std::stringstream all;
    all << in.rdbuf();
    f.bytes = all.str();
    return f;
  }();
  return made;
}

size_t field(const uint8_t* data, size_t at) { return data[at] | size_t{data[at + 1]} << 8; }

const float* storedVector(const CPhotoVectors& vectors, size_t group, std::uint32_t id) {
  for (size_t i = 0; i < vectors.size(); ++i) {
    if (vectors.id(i) == id) return vectors.vector(group, i);
  }
  return nullptr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 5 || size > kMaxInput) return 0;
  const SFixture& f = fixture();
  const bool signature = (data[0] & 8) != 0;
  const std::int64_t chunk = signature ? 0 : kChunks[data[0] & 3];
  const bool stretch = !signature && (data[0] & 4) != 0;
  const size_t idSize = std::min(field(data, 1), size - 5);
  const size_t unreadableSize = std::min(field(data, 3), size - 5 - idSize);
  const std::string ids(reinterpret_cast<const char*>(data) + 5, idSize);
  const std::string unreadable(reinterpret_cast<const char*>(data) + 5 + idSize, unreadableSize);
  std::string vectors(reinterpret_cast<const char*>(data) + 5 + idSize + unreadableSize,
                      size - 5 - idSize - unreadableSize);
  if (stretch && idSize / 4 <= kMaxStretchedIds) {
    std::string stretched(idSize / 4 * CPhotoVectors::photoFloats() * sizeof(float), '\0');
    for (size_t i = 0; i < stretched.size() && !vectors.empty(); ++i) {
      stretched[i] = vectors[i % vectors.size()];
    }
    vectors = stretched;
  }

  std::ofstream(f.file, std::ios::binary | std::ios::trunc) << f.bytes;
  {
    sqlite3* db = nullptr;
    sqlite3_stmt* put = nullptr;
    const char* const change =
        signature ? "UPDATE photo SET signature = ?3 WHERE id = 4"
                  : "INSERT OR REPLACE INTO vectors (chunk, ids, data, unreadable) "
                    "VALUES (?1, ?2, ?3, ?4)";
    if (sqlite3_open(f.file.c_str(), &db) != SQLITE_OK ||
        sqlite3_prepare_v2(db, change, -1, &put, nullptr) != SQLITE_OK) {
      std::abort();
    }
    sqlite3_bind_int64(put, 1, chunk);
    sqlite3_bind_blob(put, 2, ids.data(), static_cast<int>(ids.size()), SQLITE_STATIC);
    sqlite3_bind_blob(put, 3, vectors.data(), static_cast<int>(vectors.size()), SQLITE_STATIC);
    sqlite3_bind_blob(put, 4, unreadable.data(), static_cast<int>(unreadable.size()),
                      SQLITE_STATIC);
    if (sqlite3_step(put) != SQLITE_DONE) std::abort();
    sqlite3_finalize(put);
    sqlite3_close(db);
  }

  try {
    CPhotoLibrary library(f.file, CPhotoLibrary::Access::kExisting);
    std::vector<std::pair<SStoredPhoto, std::string>> skipped;
    CPhotoVectors read = library.loadVectors(&skipped);
    std::set<std::uint32_t> seen;
    for (size_t i = 0; i < read.size(); ++i) {
      const std::uint32_t id = read.id(i);
      if (!seen.insert(id).second) __builtin_trap();
      if (std::int64_t{id} >> 12 == chunk) continue;
      for (size_t g = 0; g < CPhotoVectors::groupCount(); ++g) {
        const float* was = storedVector(f.stored, g, id);
        if (was == nullptr || std::memcmp(was, read.vector(g, i),
                                          CPhotoVectors::vectorLength(g) * sizeof(float)) != 0) {
          __builtin_trap();
        }
      }
    }
    const CSearchEngine engine(std::move(read), 1);
    volatile size_t sink = engine.samePhotoPairs().size();
    if (engine.size() > 0) sink = sink + engine.nearest(engine.photos(), 0, 3).size();
    (void)sink;
  } catch (const CToolError&) {
  }
  return 0;
}
