// CPhotoLibrary: the library file of the orvane tool, a SQLite database.
//
// It holds one row per photo (id, path, size, modification time, signature stream) and,
// as a cache, the ready group vectors of the photos in chunks of 4096 consecutive ids, so
// that a search reads vectors instead of decoding every signature, and no single value has
// to hold the whole library. Triggers drop a chunk whenever a photo of its id range changes;
// a missing or damaged chunk is built again from the signatures.
//
// Older library files are upgraded in place when opened (the layout steps in the source say
// what each layout adds).
//
// It also keeps the folders that were indexed, and the photo moves under way: a move is
// written down before the file moves and settled after, in the transaction that records the
// photo's new path; a library opened after an interruption settles the moves left over by
// looking where each file is.
//
// Settings that hold for the whole library (how its photos were decoded, for one) are kept
// as named texts beside the photos; libraries made before settings existed have none.
//
// Every change is made inside a transaction: an interrupted writer leaves the file as of its
// last commit. A file that is not an orvane library is refused before anything is written.
// Every failure is a CToolError naming the file.
#ifndef ORVANE_TOOLS_CPHOTOLIBRARY_H_
#define ORVANE_TOOLS_CPHOTOLIBRARY_H_

#include <orvane.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "search/CPhotoVectors.h"
#include "tools/orvane/PhotoFiles.h"

struct sqlite3;

struct SStoredPhoto {
  int id = 0;
  std::string path;
  SPhotoStamp stamp;
};

// A photo file to move, from where the library has it to a path that must not exist yet.
struct SPhotoMove {
  int id = 0;
  std::string from;
  std::string to;
};

// Made beside the target while a move copies a file across file systems.
std::string partialCopyPath(const std::string& target);

class CPhotoLibrary {
 public:
  enum class Access { kExisting, kCreate };

  // Opens the library file; kCreate makes a new library when the file is missing or empty,
  // and checks an existing one for damage before it is written.
  CPhotoLibrary(const std::string& file, Access access);
  ~CPhotoLibrary();
  CPhotoLibrary(const CPhotoLibrary&) = delete;
  CPhotoLibrary& operator=(const CPhotoLibrary&) = delete;

  const std::string& file() const { return fileName; }

  std::int64_t photoCount();
  // Every photo, by id.
  std::vector<SStoredPhoto> photos();
  // The photo of an id; an empty path when there is none.
  SStoredPhoto photoOf(std::int64_t id);

  // Changes go between begin and commit; closing the library without commit drops them.
  void begin();
  void commit();
  // Adds the photo, or replaces the row of the same path.
  void putPhoto(const std::string& path, const SPhotoStamp& stamp, const std::string& signature);
  void removePhoto(int id);

  // Folders (absolute, normalised) whose photos were indexed; the parent folder of a file
  // that was indexed by its own name.
  void addIndexedFolders(const std::vector<std::string>& folders);
  std::vector<std::string> indexedFolders();

  // Writes the moves down, each in its own transaction with its outcome: startMoves before
  // any file moves, finishMove after each, with the new path when the file moved.
  void startMoves(const std::vector<SPhotoMove>& moves);
  void finishMove(const SPhotoMove& move, bool moved);

  // The text stored under key, or fallback when there is none.
  std::string setting(const std::string& key, const std::string& fallback);
  // Stores value under key; goes between begin and commit.
  void putSetting(const std::string& key, const std::string& value);

  // The group vectors of every photo, by id: from the cache where it is current, otherwise
  // from the signatures. A photo whose signature cannot be read is left out and added to
  // `unreadable` with the reason.
  CPhotoVectors loadVectors(std::vector<std::pair<SStoredPhoto, std::string>>* unreadable);
  // Builds and stores every chunk of the cache that is missing.
  void refreshCache();
  // Stores the vectors of photos already in the library as the chunks of their ids, in place
  // of what the cache held for those chunks. REQUIRES: vectors holds whole chunks, by id.
  void storeVectors(const CPhotoVectors& vectors);

 private:
  void execute(const char* sql);
  [[noreturn]] void fail(const std::string& reason);
  void checkFormat(Access access);
  void settleInterruptedMoves();
  void upgrade(std::int64_t from);
  // The chunks that hold photos, ascending.
  std::vector<std::int64_t> photoChunks();
  std::vector<std::int64_t> staleChunks();
  struct SChunk;
  SChunk buildChunk(std::int64_t chunk);
  void storeChunk(std::int64_t chunk, const CPhotoVectors& vectors, size_t first, size_t count,
                  const std::vector<std::uint32_t>& unreadable);

  std::string fileName;
  sqlite3* db;
};

#endif  // ORVANE_TOOLS_CPHOTOLIBRARY_H_
