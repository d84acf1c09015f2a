#include "tools/orvane/CPhotoMover.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>

namespace fs = std::filesystem;

namespace {

using Failure = std::optional<std::string>;

Failure systemFailure(const std::string& what) { return what + std::strerror(errno); }

// Renames without replacing an existing file. File systems that cannot promise that in a
// rename get a hard link and an unlink, which cannot replace either.
bool renameNoReplace(const std::string& from, const std::string& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
    return true;
  }
  if (errno != EINVAL && errno != ENOSYS) return false;
  if (link(from.c_str(), to.c_str()) != 0) return false;
  unlink(from.c_str());
  return true;
}

class CFileDescriptor {
 public:
  explicit CFileDescriptor(int fd) : fd(fd) {}
  ~CFileDescriptor() {
    if (fd >= 0) close(fd);
  }
  CFileDescriptor(const CFileDescriptor&) = delete;
  CFileDescriptor& operator=(const CFileDescriptor&) = delete;
  int get() const { return fd; }

 private:
  int fd;
};

bool sameBytes(const std::string& a, const std::string& b) {
  std::ifstream inA(a, std::ios::binary);
  std::ifstream inB(b, std::ios::binary);
  constexpr std::size_t kChunk = 1 << 20;
  std::unique_ptr<char[]> bufferA(new char[kChunk]);
  std::unique_ptr<char[]> bufferB(new char[kChunk]);
  while (inA && inB) {
    inA.read(bufferA.get(), kChunk);
    inB.read(bufferB.get(), kChunk);
    if (inA.gcount() != inB.gcount() ||
        std::memcmp(bufferA.get(), bufferB.get(), static_cast<std::size_t>(inA.gcount())) != 0) {
      return false;
    }
  }
  return !inA.bad() && !inB.bad() && inA.eof() && inB.eof();
}

// Copies from into copy, a new file, with the original's permissions and times.
Failure copyFile(const std::string& from, const std::string& copy) {
  CFileDescriptor in(open(from.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat status {};
  if (in.get() < 0 || fstat(in.get(), &status) != 0) return systemFailure("");
  CFileDescriptor out(
      open(copy.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, status.st_mode & 07777));
  if (out.get() < 0) return systemFailure("cannot make " + copy + ": ");
  std::unique_ptr<char[]> buffer(new char[1 << 20]);
  for (;;) {
    const ssize_t got = read(in.get(), buffer.get(), 1 << 20);
    if (got < 0) return systemFailure("");
    if (got == 0) break;
    for (ssize_t written = 0; written < got;) {
      const ssize_t put = write(out.get(), buffer.get() + written, got - written);
      if (put < 0) return systemFailure("cannot write " + copy + ": ");
      written += put;
    }
  }
  const struct timespec times[2] = {status.st_atim, status.st_mtim};
  if (fchmod(out.get(), status.st_mode & 07777) != 0 || futimens(out.get(), times) != 0 ||
      fsync(out.get()) != 0) {
    return systemFailure("cannot finish " + copy + ": ");
  }
  return std::nullopt;
}

Failure copyAcross(const std::string& from, const std::string& to) {
  const std::string copy = partialCopyPath(to);
  Failure failure = copyFile(from, copy);
  if (!failure && !sameBytes(from, copy)) failure = "the copy at " + copy + " differs";
  if (!failure && !renameNoReplace(copy, to)) {
    failure =
        errno == EEXIST ? "target exists: " + to : *systemFailure("cannot place " + to + ": ");
  }
  if (failure) {
    std::error_code ignored;
    fs::remove(copy, ignored);
    return failure;
  }
  if (unlink(from.c_str()) != 0) {
    failure = systemFailure("copied, but the original cannot be removed: ");
    unlink(to.c_str());  // the copy just made: the photo stays where it was
  }
  return failure;
}

Failure moveFile(const SPhotoMove& move) {
  std::error_code error;
  if (fs::exists(fs::symlink_status(move.to, error))) return "target exists: " + move.to;
  fs::create_directories(fs::path(move.to).parent_path(), error);
  if (error) return "cannot make the folder of " + move.to + ": " + error.message();
  if (renameNoReplace(move.from, move.to)) return std::nullopt;
  if (errno == EEXIST) return "target exists: " + move.to;
  if (errno == EXDEV) return copyAcross(move.from, move.to);
  return systemFailure("");
}

}  // namespace

SMoveSummary CPhotoMover::run(const std::vector<SPhotoMove>& moves) {
  SMoveSummary summary;
  library.startMoves(moves);
  for (const SPhotoMove& move : moves) {
    const Failure failure = moveFile(move);
    library.finishMove(move, !failure);
    if (failure) {
      std::fprintf(stderr, "orvane: %s: %s\n", move.from.c_str(), failure->c_str());
      ++summary.failed;
    } else {
      ++summary.moved;
    }
  }
  return summary;
}
