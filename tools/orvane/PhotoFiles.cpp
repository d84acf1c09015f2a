#include "tools/orvane/PhotoFiles.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace {

bool hasPhotoExtension(const fs::path& path) {
  static const char* const kExtensions[] = {".jpg", ".jpeg", ".jpe", ".jfif", ".png",
                                            ".webp", ".tif", ".tiff", ".heic", ".heif",
                                            ".hif", ".avif"};
  std::string extension = path.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return std::find(std::begin(kExtensions), std::end(kExtensions), extension) !=
         std::end(kExtensions);
}

bool isHidden(const fs::path& path) {
  const std::string name = path.filename().string();
  return !name.empty() && name[0] == '.';
}

// Size and modification time; false when the file cannot be looked at.
bool stampFile(const fs::path& path, SPhotoStamp* stamp, std::error_code& error) {
  const std::uintmax_t size = fs::file_size(path, error);
  if (error) return false;
  const fs::file_time_type mtime = fs::last_write_time(path, error);
  if (error) return false;
  stamp->size = static_cast<std::int64_t>(size);
  stamp->mtime = std::chrono::duration_cast<std::chrono::nanoseconds>(mtime.time_since_epoch())
                     .count();
  return true;
}

void walkFolder(const fs::path& folder, std::vector<SPhotoFile>& found,
                const PathFailure& failed) {
  std::error_code error;
  fs::recursive_directory_iterator it(folder, fs::directory_options::skip_permission_denied,
                                      error);
  for (; !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
    std::error_code entryError;
    if (isHidden(it->path())) {
      if (it->is_directory(entryError)) it.disable_recursion_pending();
      continue;
    }
    if (!hasPhotoExtension(it->path()) || !it->is_regular_file(entryError)) continue;
    SPhotoFile file{it->path().string(), {}};
    if (stampFile(it->path(), &file.stamp, entryError)) {
      found.push_back(file);
    } else {
      failed(file.path, entryError.message());
    }
  }
  if (error) failed(folder.string(), error.message());
}

}  // namespace

std::string libraryPath(const std::string& path) {
  std::error_code error;
  fs::path absolute = fs::absolute(path, error);
  if (error) absolute = path;
  return absolute.lexically_normal().string();
}

std::vector<SPhotoFile> collectPhotoFiles(const std::vector<std::string>& paths,
                                          const PathFailure& failed) {
  std::vector<SPhotoFile> found;
  for (const std::string& named : paths) {
    const fs::path path = libraryPath(named);
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (fs::is_directory(status)) {
      walkFolder(path, found, failed);
      continue;
    }
    SPhotoFile file{path.string(), {}};
    if (!error && !fs::is_regular_file(status)) {
      failed(named, "not a regular file");
    } else if (error || !stampFile(path, &file.stamp, error)) {
      failed(named, error.message());
    } else {
      found.push_back(file);
    }
  }
  std::sort(found.begin(), found.end(),
            [](const SPhotoFile& a, const SPhotoFile& b) { return a.path < b.path; });
  found.erase(std::unique(found.begin(), found.end(),
                          [](const SPhotoFile& a, const SPhotoFile& b) { return a.path == b.path; }),
              found.end());
  return found;
}

bool photoFileGone(const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  return status.type() == fs::file_type::not_found;
}
