#include "tools/orvane/MemoryLimits.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <string>

namespace {

namespace fs = std::filesystem;

// Cgroup trees of both versions in a temporary folder, and what the group named may take.
TEST(MemoryLimitsTest, CgroupLimitLessWhatTheGroupCannotDrop) {
  struct SCase {
    const char* list;
    std::map<std::string, std::string> files;
    std::optional<std::uint64_t> left;
  };
  const SCase cases[] = {
      {"0::/box\n",
       {{"box/memory.max", "1000000\n"},
        {"box/memory.current", "300000\n"},
        {"box/memory.stat", "anon 100\ninactive_file 100000\n"}},
       800000},
      {"0::/box\n", {{"box/memory.max", "max\n"}, {"box/memory.current", "300000\n"}}, {}},
      {"0::/u\n", {{"unified/u/memory.max", "4096\n"}, {"unified/u/memory.current", "96\n"}}, 4000},
      {"9:name=systemd:/\n4:cpu,memory:/p\n0::/\n",
       {{"memory/p/memory.limit_in_bytes", "5000\n"},
        {"memory/p/memory.usage_in_bytes", "6000\n"},
        {"memory/p/memory.stat", "cache 900\ntotal_inactive_file 500\n"}},
       0},
      {"4:memory:/p\n", {{"memory/p/memory.limit_in_bytes", "5000\n"}}, {}},
      {"garbage\n0:memory\n", {}, {}},
  };
  const fs::path root = fs::temp_directory_path() / "orvane-memory-limits-test";
  for (const SCase& c : cases) {
    fs::remove_all(root);
    for (const auto& [name, text] : c.files) {
      fs::create_directories((root / name).parent_path());
      std::ofstream(root / name) << text;
    }
    EXPECT_EQ(cgroupMemoryLeft(c.list, root.string()), c.left) << c.list;
  }
  fs::remove_all(root);
}

}  // namespace
