#include "tools/orvane/MemoryLimits.h"

#include <sys/resource.h>

#include <algorithm>
#include <fstream>
#include <limits>
#include <sstream>
#include <vector>

namespace {

// The kilobytes that a "/proc" status file gives under key, or nothing.
std::optional<std::uint64_t> kilobytesOf(const char* file, const std::string& key) {
  std::ifstream status(file);
  std::string name;
  std::uint64_t kilobytes = 0;
  while (status >> name) {
    if (name == key && status >> kilobytes) return kilobytes;
    status.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
  }
  return std::nullopt;
}

// The number a cgroup file holds, or nothing (also for "max", no limit).
std::optional<std::uint64_t> numberIn(const std::string& file) {
  std::ifstream in(file);
  std::uint64_t number = 0;
  if (in >> number) return number;
  return std::nullopt;
}

// The value of key in a memory.stat file, 0 when it has none.
std::uint64_t statOf(const std::string& file, const std::string& key) {
  std::ifstream in(file);
  std::string name;
  std::uint64_t value = 0;
  while (in >> name >> value) {
    if (name == key) return value;
  }
  return 0;
}

std::optional<std::uint64_t> least(std::optional<std::uint64_t> a, std::uint64_t b) {
  return std::min(a.value_or(b), b);
}

}  // namespace

std::optional<std::uint64_t> cgroupMemoryLeft(const std::string& cgroupList,
                                              const std::string& root) {
  struct SFiles {
    std::string folder, limit, usage, inactive;
  };
  std::istringstream lines(cgroupList);
  std::string line;
  while (std::getline(lines, line)) {
    // "id:controllers:path"; a v2 line names no controllers, and v2 is mounted at the root
    // or, beside v1, under "unified".
    const size_t first = line.find(':');
    const size_t second = first == std::string::npos ? first : line.find(':', first + 1);
    if (second == std::string::npos) continue;
    const std::string controllers = "," + line.substr(first + 1, second - first - 1) + ",";
    const std::string path = line.substr(second + 1);
    std::vector<SFiles> candidates;
    if (controllers == ",,") {
      for (const char* mount : {"", "/unified"}) {
        candidates.push_back({root + mount + path, "memory.max", "memory.current", "inactive_file"});
      }
    } else if (controllers.find(",memory,") != std::string::npos) {
      candidates.push_back({root + "/memory" + path, "memory.limit_in_bytes",
                            "memory.usage_in_bytes", "total_inactive_file"});
    }
    for (const SFiles& files : candidates) {
      const auto limit = numberIn(files.folder + "/" + files.limit);
      const auto usage = numberIn(files.folder + "/" + files.usage);
      if (!limit || !usage) continue;
      const std::uint64_t inactive = statOf(files.folder + "/memory.stat", files.inactive);
      const std::uint64_t used = *usage > inactive ? *usage - inactive : 0;
      return *limit > used ? *limit - used : 0;
    }
  }
  return std::nullopt;
}

std::optional<std::uint64_t> availableMemory() {
  std::optional<std::uint64_t> available;
  if (const auto free = kilobytesOf("/proc/meminfo", "MemAvailable:")) available = *free << 10;
  rlimit limit{};
  const auto held = kilobytesOf("/proc/self/status", "VmSize:");
  if (getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY && held) {
    available = least(available, limit.rlim_cur > (*held << 10) ? limit.rlim_cur - (*held << 10) : 0);
  }
  std::ifstream groups("/proc/self/cgroup");
  std::stringstream list;
  list << groups.rdbuf();
  if (const auto left = cgroupMemoryLeft(list.str(), "/sys/fs/cgroup")) {
    available = least(available, *left);
  }
  return available;
}
