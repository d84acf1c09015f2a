// Photo files: finding them under the paths a user names, and the stamp (size and
// modification time) by which an unchanged file is recognised on the next run.
//
// A file named by the user is always taken; a folder is walked recursively for files with a
// photo extension (JPEG, PNG, WebP, TIFF, HEIF), leaving out hidden files and folders and
// not following links to folders. Paths are absolute and normalised, sorted, each once.
#ifndef ORVANE_TOOLS_PHOTOFILES_H_
#define ORVANE_TOOLS_PHOTOFILES_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

struct SPhotoStamp {
  std::int64_t size = 0;
  std::int64_t mtime = 0;  // nanoseconds of the file clock
  bool operator==(const SPhotoStamp& other) const {
    return size == other.size && mtime == other.mtime;
  }
};

struct SPhotoFile {
  std::string path;
  SPhotoStamp stamp;
};

// Called for a named path that cannot be used, with the reason.
using PathFailure = std::function<void(const std::string& path, const std::string& reason)>;

std::vector<SPhotoFile> collectPhotoFiles(const std::vector<std::string>& paths,
                                          const PathFailure& failed);

// The absolute, normalised form of a path, as the library stores it.
std::string libraryPath(const std::string& path);

// True only when the file is known to be gone (an unreadable folder does not count).
bool photoFileGone(const std::string& path);

#endif  // ORVANE_TOOLS_PHOTOFILES_H_
