// Control groups (cgroup v2) that were delegated to the daemon.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace Orbane {

/// Where the kernel shows control groups; tests put their own folders here.
struct CgroupPlace {
  std::string mount = "/sys/fs/cgroup";
  std::string self = "/proc/self/cgroup";
  bool requireCgroupFs = true;
};

/// A group that a child can join.
class ResourceGroup {
 public:
  ResourceGroup() = default;
  ~ResourceGroup();
  ResourceGroup(ResourceGroup&& other) noexcept;
  ResourceGroup& operator=(ResourceGroup&& other) noexcept;

  /// The group `name` below the daemon's own control group, made there when the service manager delegated
  /// that (its mark is the extended attribute "trusted.delegate" or "user.delegate"). With `memoryMax`, in
  /// bytes, the group's limit is set. Invalid when there is no such group; never an error.
  static ResourceGroup Open(std::string const& name, std::optional<std::uint64_t> memoryMax,
                            CgroupPlace const& place = {});

  bool valid() const { return procs_ >= 0; }
  /// True when the kernel took the limit that was asked for.
  bool limitsMemory() const { return limitsMemory_; }
  /// Descriptor of "cgroup.procs", close-on-exec, 3 at least: a process that writes "0" to it joins.
  int procs() const { return procs_; }

 private:
  int procs_ = -1;
  bool limitsMemory_ = false;
};

}  // namespace Orbane
