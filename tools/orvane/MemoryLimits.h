// Memory limits: how many bytes the tool may still take before something refuses it, so that
// a search too large for the machine fails with a clear message before any work instead of
// being killed part way. Three limits count: the memory the system has free, the address-space
// limit (ulimit -v), and the memory cgroup the tool runs in (a container's limit), where the
// system's free memory says nothing about what the container may take.
#ifndef ORVANE_TOOLS_MEMORYLIMITS_H_
#define ORVANE_TOOLS_MEMORYLIMITS_H_

#include <cstdint>
#include <optional>
#include <string>

// The least that the three limits leave, in bytes; nothing when none of them says.
std::optional<std::uint64_t> availableMemory();

// What the memory cgroup that `cgroupList` names (the text of /proc/self/cgroup) may still
// take, its file systems mounted under `root`: cgroup v2's memory.max, or v1's
// memory.limit_in_bytes, less its usage apart from the file pages it can drop (inactive
// files). Nothing when the group has no limit or its files cannot be read.
std::optional<std::uint64_t> cgroupMemoryLeft(const std::string& cgroupList,
                                              const std::string& root);

#endif  // ORVANE_TOOLS_MEMORYLIMITS_H_
