#include "tools/orvane/CPhotoLibrary.h"

#include <sqlite3.h>

#include <climits>
#include <filesystem>
#include <memory>
#include <optional>
#include <sstream>
#include <utility>

#include "tools/orvane/CToolError.h"

namespace {

// "ORVN" in the SQLite header marks a library file; the user version is the layout below.
constexpr std::int64_t kApplicationId = 0x4F52564E;
constexpr std::int64_t kLayoutVersion = 1;

constexpr const char* kSchema = R"sql(
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
)sql";

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
  std::int64_t integer(int column) { return sqlite3_column_int64(statement, column); }
  std::string bytes(int column) {
    const void* data = sqlite3_column_blob(statement, column);
    const int size = sqlite3_column_bytes(statement, column);
    return data == nullptr ? std::string() : std::string(static_cast<const char*>(data), size);
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

// A load resets both weights of a database; setting those of a new database again makes
// scores read the same before a save and after the load.
void setNewDatabaseWeights(CFIDDatabase& database) {
  static const std::pair<std::optional<float>, std::optional<float>> fresh = [] {
    CFIDDatabase newDatabase(1, 0);
    float weight0 = 0;
    float weight1 = 0;
    return std::make_pair(newDatabase.getWeight(0, &weight0) ? std::optional<float>(weight0)
                                                             : std::nullopt,
                          newDatabase.getWeight(1, &weight1) ? std::optional<float>(weight1)
                                                             : std::nullopt);
  }();
  if (fresh.first) database.setWeight(0, *fresh.first);
  if (fresh.second) database.setWeight(1, *fresh.second);
}

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
    if (layout != kLayoutVersion) {
      fail("library layout " + std::to_string(layout) + " is not known to this orvane");
    }
  } else if (applicationId == 0 && tables == 0 && access == Access::kCreate) {
    begin();
    execute(kSchema);
    execute(("PRAGMA application_id = " + std::to_string(kApplicationId) +
             "; PRAGMA user_version = " + std::to_string(kLayoutVersion))
                .c_str());
    commit();
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

void CPhotoLibrary::forEachSignature(
    const std::function<void(int id, const CFIDContainer& signature)>& visit) {
  Statement query(db, fileName, "SELECT id, path, signature FROM photo ORDER BY id");
  CFIDContainer signature;
  while (query.step()) {
    const int id = static_cast<int>(query.integer(0));
    std::istringstream in(query.bytes(2));
    try {
      signature.read(in);
    } catch (const FID_Exception& e) {
      fail("damaged signature of " + query.bytes(1) + " (" + e.what() + ")");
    }
    visit(id, signature);
  }
}

std::int64_t CPhotoLibrary::generation() {
  Statement query(db, fileName, "SELECT generation FROM counter");
  if (!query.step()) fail("damaged library (no change counter)");
  return query.integer(0);
}

bool CPhotoLibrary::readCache(std::int64_t currentGeneration, std::string* stream) {
  Statement query(db, fileName, "SELECT generation, stream FROM cache");
  if (!query.step() || query.integer(0) != currentGeneration) return false;
  *stream = query.bytes(1);
  return true;
}

std::unique_ptr<CFIDDatabase> CPhotoLibrary::loadDatabase() {
  execute("BEGIN");  // one snapshot for the count, the cache and the signatures
  const std::int64_t count = photoCount();
  std::string stream;
  if (readCache(generation(), &stream)) {
    auto database = std::make_unique<CFIDDatabase>(1, 0);
    std::istringstream in(stream);
    try {
      database->load(in);
      setNewDatabaseWeights(*database);
      // A load does not report a stream it could not take; the count tells.
      if (database->size() == count) {
        commit();
        return database;
      }
    } catch (const FID_Exception&) {
      // A damaged cache only costs time: the signatures follow.
    }
  }
  std::unique_ptr<CFIDDatabase> database = buildDatabase(count);
  commit();
  return database;
}

std::unique_ptr<CFIDDatabase> CPhotoLibrary::buildDatabase(std::int64_t count) {
  auto database = std::make_unique<CFIDDatabase>(1, static_cast<unsigned>(count));
  forEachSignature([&database](int id, const CFIDContainer& signature) {
    database->addSignature(signature, id, 0);
  });
  return database;
}

void CPhotoLibrary::refreshCache() {
  begin();
  const std::int64_t current = generation();
  std::string unused;
  if (!readCache(current, &unused)) {
    std::ostringstream out;
    buildDatabase(photoCount())->save(out);
    Statement(db, fileName, "DELETE FROM cache").step();
    Statement insert(db, fileName, "INSERT INTO cache (generation, stream) VALUES (?, ?)");
    insert.bind(1, current).bindBlob(2, out.str()).step();
  }
  commit();
}
