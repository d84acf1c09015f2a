#include "tools/orvane/CPhotoLibrary.h"

#include <sqlite3.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <sstream>
#include <utility>

#include "signature/CAudioSignMulti.h"
#include "tools/orvane/CToolError.h"

namespace {

// "ORVN" in the SQLite header marks a library file; the user version is its layout.
constexpr std::int64_t kApplicationId = 0x4F52564E;

// Layout k is what step k makes of a library of layout k - 1 (0: an empty file). A new
// library runs every step; an older one the steps after its own layout.
constexpr const char* kLayoutSteps[] = {
    // 1: photos, and the saved database stream of all of them as a cache, current while the
    // change counter stands at its generation.
    R"sql(
CREATE TABLE photo (
  id INTEGER PRIMARY KEY,
  path TEXT NOT NULL UNIQUE,
  size INTEGER NOT NULL,
  mtime INTEGER NOT NULL,
  signature BLOB NOT NULL
);
CREATE TABLE counter (generation INTEGER NOT NULL);
INSERT INTO counter VALUES (0);
CREATE TABLE cache (generation INTEGER NOT NULL, stream BLOB NOT NULL);
CREATE TRIGGER photo_inserted AFTER INSERT ON photo
  BEGIN UPDATE counter SET generation = generation + 1; END;
CREATE TRIGGER photo_updated AFTER UPDATE ON photo
  BEGIN UPDATE counter SET generation = generation + 1; END;
CREATE TRIGGER photo_deleted AFTER DELETE ON photo
  BEGIN UPDATE counter SET generation = generation + 1; END;
)sql",
    // 2: the cache becomes the photos' group vectors in chunks of 4096 ids (chunk = id >> 12):
    // ids and vectors as little-endian 32-bit words, the vectors group after group; the ids
    // whose signatures could not be read. A change to a photo drops its chunk.
    R"sql(
DROP TRIGGER photo_inserted;
DROP TRIGGER photo_updated;
DROP TRIGGER photo_deleted;
DROP TABLE cache;
DROP TABLE counter;
CREATE TABLE vectors (
  chunk INTEGER PRIMARY KEY,
  ids BLOB NOT NULL,
  data BLOB NOT NULL,
  unreadable BLOB NOT NULL
);
CREATE TRIGGER photo_inserted AFTER INSERT ON photo
  BEGIN DELETE FROM vectors WHERE chunk = NEW.id >> 12; END;
CREATE TRIGGER photo_updated AFTER UPDATE ON photo
  BEGIN DELETE FROM vectors WHERE chunk IN (OLD.id >> 12, NEW.id >> 12); END;
CREATE TRIGGER photo_deleted AFTER DELETE ON photo
  BEGIN DELETE FROM vectors WHERE chunk = OLD.id >> 12; END;
)sql",
};
constexpr std::int64_t kLayoutVersion = sizeof kLayoutSteps / sizeof kLayoutSteps[0];

// Ids per chunk of the cache: chunk = id >> kChunkShift, ids chunk * kChunkIds to
// chunk * kChunkIds + kChunkIds - 1 (a multiplication: chunks of damaged files may be negative).
constexpr int kChunkShift = 12;
constexpr std::int64_t kChunkIds = std::int64_t{1} << kChunkShift;

// Large pages keep a chunk's blobs on few pages, which reads faster.
constexpr int kPageSize = 65536;

bool hostIsLittleEndian() {
  const std::uint32_t one = 1;
  unsigned char first;
  std::memcpy(&first, &one, 1);
  return first == 1;
}

std::string failureText(const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const std::exception& e) {
    return e.what();
  } catch (const std::string& text) {
    return text;
  } catch (...) {
    return "unknown failure";
  }
}

template <typename T>
std::string bytesOf(const std::vector<T>& values) {
  return std::string(reinterpret_cast<const char*>(values.data()), values.size() * sizeof(T));
}

// The words of a chunk's blob while they are ascending ids of the chunk.
std::vector<std::uint32_t> chunkIds(std::pair<const char*, size_t> blob, std::int64_t chunk) {
  std::vector<std::uint32_t> ids;
  for (size_t at = 0; at + sizeof(std::uint32_t) <= blob.second; at += sizeof(std::uint32_t)) {
    std::uint32_t id;
    std::memcpy(&id, blob.first + at, sizeof id);
    if (id == 0 || std::int64_t{id} >> kChunkShift != chunk || (!ids.empty() && id <= ids.back())) {
      break;
    }
    ids.push_back(id);
  }
  return ids;
}

// Added to layout 1 without changing its number: older files get them on first open.
constexpr const char* kMoveTables = R"sql(
CREATE TABLE IF NOT EXISTS folder (path TEXT PRIMARY KEY);
CREATE TABLE IF NOT EXISTS pending_move (
  id INTEGER PRIMARY KEY,
  source TEXT NOT NULL,
  target TEXT NOT NULL
);
)sql";

class Statement {
 public:
  Statement(sqlite3* db, const std::string& file, const char* sql) : db(db), file(file) {
    if (sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) != SQLITE_OK) fail();
  }
  ~Statement() { sqlite3_finalize(statement); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  Statement& bind(int index, std::int64_t value) {
    check(sqlite3_bind_int64(statement, index, value));
    return *this;
  }
  Statement& bindText(int index, const std::string& text) {
    check(sqlite3_bind_text(statement, index, text.data(), static_cast<int>(text.size()),
                            SQLITE_TRANSIENT));
    return *this;
  }
  Statement& bindBlob(int index, const std::string& bytes) {
    check(sqlite3_bind_blob(statement, index, bytes.data(), static_cast<int>(bytes.size()),
                            SQLITE_TRANSIENT));
    return *this;
  }
  // True while there is a row to read.
  bool step() {
    const int status = sqlite3_step(statement);
    if (status == SQLITE_ROW) return true;
    if (status != SQLITE_DONE) fail();
    return false;
  }
  // Ready to step again from the first row, with the same bindings.
  void reset() { sqlite3_reset(statement); }
  std::int64_t integer(int column) { return sqlite3_column_int64(statement, column); }
  std::string bytes(int column) {
    const void* data = sqlite3_column_blob(statement, column);
    const int size = sqlite3_column_bytes(statement, column);
    return data == nullptr ? std::string() : std::string(static_cast<const char*>(data), size);
  }
  // The column's bytes in place: valid until the next step.
  std::pair<const char*, size_t> blob(int column) {
    const void* data = sqlite3_column_blob(statement, column);
    const int size = sqlite3_column_bytes(statement, column);
    return {static_cast<const char*>(data), data == nullptr ? 0 : static_cast<size_t>(size)};
  }

 private:
  void check(int status) {
    if (status != SQLITE_OK) fail();
  }
  [[noreturn]] void fail() { throw CToolError(file, sqlite3_errmsg(db)); }

  sqlite3* db;
  const std::string& file;
  sqlite3_stmt* statement = nullptr;
};

}  // namespace

std::string partialCopyPath(const std::string& target) { return target + ".orvane-part"; }

CPhotoLibrary::CPhotoLibrary(const std::string& file, Access access) : fileName(file), db(nullptr) {
  std::error_code error;
  if (access == Access::kExisting && !std::filesystem::exists(file, error)) {
    throw CToolError(file, "no such library");
  }
  // Read-write even for searches: a writer's interrupted transaction is rolled back on open.
  int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX;
  if (access == Access::kCreate) flags |= SQLITE_OPEN_CREATE;
  if (sqlite3_open_v2(file.c_str(), &db, flags, nullptr) != SQLITE_OK) {
    const std::string reason = db ? sqlite3_errmsg(db) : "out of memory";
    sqlite3_close(db);
    throw CToolError(file, "cannot open (" + reason + ")");
  }
  sqlite3_busy_timeout(db, 10000);
  // Mapped reads take the cache's chunks at memory speed, as far as SQLite maps.
  sqlite3_exec(db, "PRAGMA mmap_size = 1099511627776", nullptr, nullptr, nullptr);
  try {
    checkFormat(access);
    settleInterruptedMoves();
  } catch (...) {
    sqlite3_close(db);
    throw;
  }
}

CPhotoLibrary::~CPhotoLibrary() { sqlite3_close(db); }

void CPhotoLibrary::fail(const std::string& reason) { throw CToolError(fileName, reason); }

void CPhotoLibrary::execute(const char* sql) {
  char* message = nullptr;
  if (sqlite3_exec(db, sql, nullptr, nullptr, &message) != SQLITE_OK) {
    const std::string reason = message ? message : sqlite3_errmsg(db);
    sqlite3_free(message);
    fail(reason);
  }
}

void CPhotoLibrary::checkFormat(Access access) {
  std::int64_t applicationId = 0;
  std::int64_t layout = 0;
  std::int64_t tables = 0;
  try {
    Statement idQuery(db, fileName, "PRAGMA application_id");
    applicationId = idQuery.step() ? idQuery.integer(0) : 0;
    Statement layoutQuery(db, fileName, "PRAGMA user_version");
    layout = layoutQuery.step() ? layoutQuery.integer(0) : 0;
    Statement tableQuery(db, fileName, "SELECT count(*) FROM sqlite_schema");
    tables = tableQuery.step() ? tableQuery.integer(0) : 0;
  } catch (const CToolError&) {
    if (sqlite3_errcode(db) == SQLITE_NOTADB) fail("not an orvane library (not a SQLite file)");
    throw;
  }
  if (applicationId == kApplicationId) {
    if (layout < 1 || layout > kLayoutVersion) {
      fail("library layout " + std::to_string(layout) + " is not known to this orvane");
    }
    if (layout < kLayoutVersion) upgrade(layout);
  } else if (applicationId == 0 && tables == 0 && access == Access::kCreate) {
    execute(("PRAGMA page_size = " + std::to_string(kPageSize)).c_str());
    upgrade(0);
  } else {
    fail("not an orvane library");
  }
  execute(kMoveTables);
  if (access == Access::kCreate) {
    // A writer must not build on a damaged file: check it before the first change.
    std::string verdict;
    {
      Statement check(db, fileName, "PRAGMA quick_check");
      if (check.step()) verdict = check.bytes(0);
    }
    if (verdict != "ok") fail("damaged library (" + verdict + ")");
    execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL;");
  }
}

std::int64_t CPhotoLibrary::photoCount() {
  Statement query(db, fileName, "SELECT count(*) FROM photo");
  query.step();
  return query.integer(0);
}

std::vector<SStoredPhoto> CPhotoLibrary::photos() {
  std::vector<SStoredPhoto> all;
  Statement query(db, fileName, "SELECT id, path, size, mtime FROM photo ORDER BY id");
  while (query.step()) {
    all.push_back({static_cast<int>(query.integer(0)), query.bytes(1),
                   {query.integer(2), query.integer(3)}});
  }
  return all;
}

void CPhotoLibrary::begin() { execute("BEGIN IMMEDIATE"); }

void CPhotoLibrary::commit() { execute("COMMIT"); }

void CPhotoLibrary::putPhoto(const std::string& path, const SPhotoStamp& stamp,
                             const std::string& signature) {
  Statement put(db, fileName,
                "INSERT INTO photo (path, size, mtime, signature) VALUES (?, ?, ?, ?) "
                "ON CONFLICT (path) DO UPDATE SET size = excluded.size, "
                "mtime = excluded.mtime, signature = excluded.signature");
  put.bindText(1, path).bind(2, stamp.size).bind(3, stamp.mtime).bindBlob(4, signature).step();
  // The library's photo ids are ints.
  if (sqlite3_last_insert_rowid(db) > INT_MAX) fail("no room for more photos");
}

void CPhotoLibrary::removePhoto(int id) {
  Statement remove(db, fileName, "DELETE FROM photo WHERE id = ?");
  remove.bind(1, id).step();
}

void CPhotoLibrary::addIndexedFolders(const std::vector<std::string>& folders) {
  begin();
  for (const std::string& folder : folders) {
    Statement(db, fileName, "INSERT OR IGNORE INTO folder (path) VALUES (?)")
        .bindText(1, folder)
        .step();
  }
  commit();
}

std::vector<std::string> CPhotoLibrary::indexedFolders() {
  std::vector<std::string> folders;
  Statement query(db, fileName, "SELECT path FROM folder ORDER BY path");
  while (query.step()) folders.push_back(query.bytes(0));
  return folders;
}

void CPhotoLibrary::startMoves(const std::vector<SPhotoMove>& moves) {
  begin();
  for (const SPhotoMove& move : moves) {
    Statement(db, fileName, "INSERT INTO pending_move (id, source, target) VALUES (?, ?, ?)")
        .bind(1, move.id)
        .bindText(2, move.from)
        .bindText(3, move.to)
        .step();
  }
  commit();
}

void CPhotoLibrary::finishMove(const SPhotoMove& move, bool moved) {
  begin();
  if (moved) {
    Statement(db, fileName, "UPDATE photo SET path = ? WHERE id = ?")
        .bindText(1, move.to)
        .bind(2, move.id)
        .step();
  }
  Statement(db, fileName, "DELETE FROM pending_move WHERE id = ?").bind(1, move.id).step();
  commit();
}

// A move cut short left its photo either where it was or at its target, and perhaps a
// partial copy beside the target, which is the mover's own file and goes.
void CPhotoLibrary::settleInterruptedMoves() {
  std::vector<SPhotoMove> left;
  {
    Statement query(db, fileName, "SELECT id, source, target FROM pending_move");
    while (query.step()) {
      left.push_back({static_cast<int>(query.integer(0)), query.bytes(1), query.bytes(2)});
    }
  }
  for (const SPhotoMove& move : left) {
    std::error_code error;
    std::filesystem::remove(partialCopyPath(move.to), error);
    finishMove(move, photoFileGone(move.from) && !photoFileGone(move.to));
  }
}

std::string CPhotoLibrary::setting(const std::string& key, const std::string& fallback) {
  // The table is made with the first setting, so a library may not have one yet.
  Statement table(db, fileName,
                  "SELECT count(*) FROM sqlite_schema WHERE type = 'table' AND name = 'setting'");
  if (!table.step() || table.integer(0) == 0) return fallback;
  Statement query(db, fileName, "SELECT value FROM setting WHERE key = ?");
  query.bindText(1, key);
  return query.step() ? query.bytes(0) : fallback;
}

void CPhotoLibrary::putSetting(const std::string& key, const std::string& value) {
  execute("CREATE TABLE IF NOT EXISTS setting (key TEXT PRIMARY KEY, value TEXT NOT NULL)");
  Statement put(db, fileName, "INSERT OR REPLACE INTO setting (key, value) VALUES (?, ?)");
  put.bindText(1, key).bindText(2, value).step();
}

// Every step after `from` in one transaction: an interrupted upgrade leaves the old layout.
void CPhotoLibrary::upgrade(std::int64_t from) {
  begin();
  for (std::int64_t step = from; step < kLayoutVersion; ++step) execute(kLayoutSteps[step]);
  execute(("PRAGMA application_id = " + std::to_string(kApplicationId) +
           "; PRAGMA user_version = " + std::to_string(kLayoutVersion))
              .c_str());
  commit();
}

struct CPhotoLibrary::SChunk {
  CPhotoVectors vectors;
  std::vector<std::pair<SStoredPhoto, std::string>> unreadable;
};

// One seek on the ids per chunk: a large library is not read through to find them.
std::vector<std::int64_t> CPhotoLibrary::photoChunks() {
  std::vector<std::int64_t> chunks;
  Statement next(db, fileName, "SELECT id FROM photo WHERE id >= ? ORDER BY id LIMIT 1");
  std::int64_t from = std::numeric_limits<std::int64_t>::min();
  while (next.bind(1, from).step()) {
    chunks.push_back(next.integer(0) >> kChunkShift);
    if (chunks.back() == std::numeric_limits<std::int64_t>::max() >> kChunkShift) break;
    from = (chunks.back() + 1) * kChunkIds;
    next.reset();
  }
  return chunks;
}

// The chunks that photos need and the cache lacks, ascending.
std::vector<std::int64_t> CPhotoLibrary::staleChunks() {
  std::vector<std::int64_t> stored;
  {
    Statement query(db, fileName, "SELECT chunk FROM vectors ORDER BY chunk");
    while (query.step()) stored.push_back(query.integer(0));
  }
  const std::vector<std::int64_t> needed = photoChunks();
  std::vector<std::int64_t> stale;
  std::set_difference(needed.begin(), needed.end(), stored.begin(), stored.end(),
                      std::back_inserter(stale));
  return stale;
}

CPhotoLibrary::SChunk CPhotoLibrary::buildChunk(std::int64_t chunk) {
  SChunk built;
  Statement query(db, fileName,
                  "SELECT id, path, size, mtime, signature FROM photo WHERE id BETWEEN ? AND ? "
                  "ORDER BY id");
  query.bind(1, chunk * kChunkIds).bind(2, chunk * kChunkIds + (kChunkIds - 1));
  CAudioSignMulti signature;
  while (query.step()) {
    const std::int64_t id = query.integer(0);
    try {
      // Only an edited file has others; the vectors hold ids as 32-bit words.
      if (id < 1 || id > INT_MAX) throw std::string("photo id out of range");
      std::istringstream in(query.bytes(4));
      signature.read(in, nullptr);
      built.vectors.addSignature(signature, static_cast<std::uint32_t>(id));
    } catch (...) {
      built.unreadable.push_back(
          {{static_cast<int>(id), query.bytes(1), {query.integer(2), query.integer(3)}},
           failureText(std::current_exception())});
    }
  }
  return built;
}

SStoredPhoto CPhotoLibrary::photoOf(std::int64_t id) {
  Statement query(db, fileName, "SELECT path, size, mtime FROM photo WHERE id = ?");
  query.bind(1, id);
  if (!query.step()) return {static_cast<int>(id), std::string(), {}};
  return {static_cast<int>(id), query.bytes(0), {query.integer(1), query.integer(2)}};
}

// ids: `count` words; data: for each group, the `count` vectors one after another.
void CPhotoLibrary::storeChunk(std::int64_t chunk, const CPhotoVectors& vectors, size_t first,
                               size_t count, const std::vector<std::uint32_t>& unreadable) {
  std::vector<std::uint32_t> ids(count);
  for (size_t i = 0; i < count; ++i) ids[i] = vectors.id(first + i);
  std::string data;
  for (size_t g = 0; g < CPhotoVectors::groupCount() && count > 0; ++g) {
    data.append(reinterpret_cast<const char*>(vectors.vector(g, first)),
                count * CPhotoVectors::vectorLength(g) * sizeof(float));
  }
  Statement insert(db, fileName,
                   "INSERT OR REPLACE INTO vectors (chunk, ids, data, unreadable) "
                   "VALUES (?, ?, ?, ?)");
  insert.bind(1, chunk).bindBlob(2, bytesOf(ids)).bindBlob(3, data);
  insert.bindBlob(4, bytesOf(unreadable)).step();
}

void CPhotoLibrary::refreshCache() {
  if (!hostIsLittleEndian()) return;  // the cache's words are little-endian
  begin();
  for (std::int64_t chunk : staleChunks()) {
    const SChunk built = buildChunk(chunk);
    std::vector<std::uint32_t> unreadable;
    for (const auto& photo : built.unreadable) unreadable.push_back(photo.first.id);
    storeChunk(chunk, built.vectors, 0, built.vectors.size(), unreadable);
  }
  commit();
}

void CPhotoLibrary::storeVectors(const CPhotoVectors& vectors) {
  if (!hostIsLittleEndian()) return;
  begin();
  for (size_t first = 0; first < vectors.size();) {
    const std::int64_t chunk = std::int64_t{vectors.id(first)} >> kChunkShift;
    size_t end = first;
    while (end < vectors.size() && std::int64_t{vectors.id(end)} >> kChunkShift == chunk) ++end;
    storeChunk(chunk, vectors, first, end - first, {});
    first = end;
  }
  commit();
}

// Chunks come in id order, so the vectors do too. The triggers drop a chunk whenever a photo
// of its range changes, so a chunk that is there is current, and the cache is whole when every
// chunk that holds photos is there; each chunk is then read straight into the vectors. A chunk
// that does not hold its photos' ids once each, ascending, beside vectors of the right size
// (only a damaged file has one) is built again from the signatures, and so is everything when
// the cache stays short (another writer between the refresh and the read). Rows of chunks
// without photos are passed over; the others must hold as many ids, read or unreadable, as
// there are photos.
CPhotoVectors CPhotoLibrary::loadVectors(
    std::vector<std::pair<SStoredPhoto, std::string>>* unreadable) {
  bool whole = false;
  std::vector<std::int64_t> chunks;
  for (int attempt = 0; attempt < 2 && !whole; ++attempt) {
    if (attempt > 0) {
      commit();
      refreshCache();
    }
    execute("BEGIN");  // one snapshot for the chunks and the photos
    chunks = photoChunks();
    Statement sizes(db, fileName,
                    "SELECT chunk, length(ids) + length(unreadable) FROM vectors ORDER BY chunk");
    size_t found = 0;
    std::int64_t bytes = 0;
    while (sizes.step()) {
      if (!std::binary_search(chunks.begin(), chunks.end(), sizes.integer(0))) continue;
      ++found;
      bytes += sizes.integer(1);
    }
    whole = hostIsLittleEndian() && found == chunks.size() &&
            bytes == photoCount() * std::int64_t{sizeof(std::uint32_t)};
  }
  CPhotoVectors vectors;
  vectors.reserve(static_cast<size_t>(photoCount()));
  const auto build = [&](std::int64_t chunk) {
    SChunk built = buildChunk(chunk);
    vectors.addAll(built.vectors);
    if (unreadable != nullptr) {
      for (auto& photo : built.unreadable) unreadable->push_back(std::move(photo));
    }
  };
  if (!whole) {
    for (std::int64_t chunk : chunks) build(chunk);
    commit();
    return vectors;
  }
  Statement stored(db, fileName,
                   "SELECT chunk, ids, unreadable, length(data) FROM vectors ORDER BY chunk");
  sqlite3_blob* data = nullptr;
  const std::int64_t photoBytes = CPhotoVectors::photoFloats() * sizeof(float);
  try {
    while (stored.step()) {
      const std::int64_t chunk = stored.integer(0);
      if (!std::binary_search(chunks.begin(), chunks.end(), chunk)) continue;
      const std::vector<std::uint32_t> ids = chunkIds(stored.blob(1), chunk);
      const std::vector<std::uint32_t> skipped = chunkIds(stored.blob(2), chunk);
      std::vector<std::uint32_t> both;
      std::set_intersection(ids.begin(), ids.end(), skipped.begin(), skipped.end(),
                            std::back_inserter(both));
      const bool valid = stored.blob(1).second == ids.size() * sizeof(std::uint32_t) &&
                         stored.blob(2).second == skipped.size() * sizeof(std::uint32_t) &&
                         both.empty() &&
                         stored.integer(3) == static_cast<std::int64_t>(ids.size()) * photoBytes;
      if (!valid) {
        build(chunk);
        continue;
      }
      if (!ids.empty()) {
        const std::vector<float*> space = vectors.addSpace(ids.size(), ids.data());
        const int opened = data == nullptr
                               ? sqlite3_blob_open(db, "main", "vectors", "data", chunk, 0, &data)
                               : sqlite3_blob_reopen(data, chunk);
        if (opened != SQLITE_OK) fail(sqlite3_errmsg(db));
        int offset = 0;
        for (size_t g = 0; g < space.size(); ++g) {
          const int bytes =
              static_cast<int>(ids.size() * CPhotoVectors::vectorLength(g) * sizeof(float));
          if (sqlite3_blob_read(data, space[g], bytes, offset) != SQLITE_OK) {
            fail(sqlite3_errmsg(db));
          }
          offset += bytes;
        }
      }
      for (size_t k = 0; unreadable != nullptr && k < skipped.size(); ++k) {
        unreadable->push_back({photoOf(skipped[k]), "signature cannot be read"});
      }
    }
  } catch (...) {
    sqlite3_blob_close(data);
    throw;
  }
  sqlite3_blob_close(data);
  commit();
  return vectors;
}
