#include "platform/process/resource_group.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <fstream>
#include <utility>

namespace Orbane {
namespace {

/// The daemon's own leaf: processes may not live in a group whose children have controllers.
constexpr char kOwnLeaf[] = "daemon";

bool WriteFile(std::string const& path, std::string const& text) {
  int const descriptor = open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW);
  if (descriptor < 0) {
    return false;
  }
  bool const written = write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  close(descriptor);
  return written;
}

/// Path of the process's group in the unified hierarchy, "/system.slice/keeld.service"; empty when there is
/// none.
std::string OwnPath(CgroupPlace const& place) {
  std::ifstream file(place.self);
  std::string line;
  while (std::getline(file, line)) {
    if (line.rfind("0::/", 0) == 0 && line.find("/../") == std::string::npos) {
      return line.substr(3);
    }
  }
  return {};
}

bool IsDelegated(std::string const& folder) {
  for (char const* const name : {"trusted.delegate", "user.delegate"}) {
    char value = '0';
    if (getxattr(folder.c_str(), name, &value, 1) == 1 && value == '1') {
      return true;
    }
  }
  return false;
}

/// Empties the delegated group `base` of processes and lets its children limit memory.
void PrepareDelegated(std::string const& base) {
  std::string const leaf = base + "/" + kOwnLeaf;
  mkdir(leaf.c_str(), 0755);
  std::ifstream procs(base + "/cgroup.procs");
  std::string pid;
  while (std::getline(procs, pid)) {
    WriteFile(leaf + "/cgroup.procs", pid);
  }
  WriteFile(base + "/cgroup.subtree_control", "+memory");
}

/// Folder of the group that the daemon's groups lie in; empty when there is no unified hierarchy.
std::string BaseFolder(CgroupPlace const& place) {
  if (place.requireCgroupFs) {
    struct statfs status {};
    if (statfs(place.mount.c_str(), &status) != 0 || status.f_type != CGROUP2_SUPER_MAGIC) {
      return {};
    }
  }
  std::string path = OwnPath(place);
  if (path.empty()) {
    return {};
  }
  std::string const leaf = std::string("/") + kOwnLeaf;
  if (path.size() > leaf.size() && path.compare(path.size() - leaf.size(), leaf.size(), leaf) == 0) {
    path.resize(path.size() - leaf.size());
  }
  return place.mount + (path == "/" ? "" : path);
}

int AboveStandardStreams(int descriptor) {
  if (descriptor < 0 || descriptor > 2) {
    return descriptor;
  }
  int const moved = fcntl(descriptor, F_DUPFD_CLOEXEC, 3);
  close(descriptor);
  return moved;
}

}  // namespace

ResourceGroup::~ResourceGroup() {
  if (procs_ >= 0) {
    close(procs_);
  }
}

ResourceGroup::ResourceGroup(ResourceGroup&& other) noexcept
    : procs_(std::exchange(other.procs_, -1)), limitsMemory_(std::exchange(other.limitsMemory_, false)) {}

ResourceGroup& ResourceGroup::operator=(ResourceGroup&& other) noexcept {
  std::swap(procs_, other.procs_);
  std::swap(limitsMemory_, other.limitsMemory_);
  return *this;
}

ResourceGroup ResourceGroup::Open(std::string const& name, std::optional<std::uint64_t> memoryMax,
                                  CgroupPlace const& place) {
  ResourceGroup group;
  std::string const base = BaseFolder(place);
  if (base.empty()) {
    return group;
  }
  std::string const folder = base + "/" + name;
  struct stat status {};
  if (stat(folder.c_str(), &status) != 0) {
    if (!IsDelegated(base)) {
      return group;
    }
    PrepareDelegated(base);
    if (mkdir(folder.c_str(), 0755) != 0) {
      return group;
    }
  }
  if (memoryMax) {
    group.limitsMemory_ = WriteFile(folder + "/memory.max", std::to_string(*memoryMax));
  }
  group.procs_ =
      AboveStandardStreams(open((folder + "/cgroup.procs").c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW));
  return group;
}

}  // namespace Orbane
