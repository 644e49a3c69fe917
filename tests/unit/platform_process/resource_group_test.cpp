#include "platform/process/resource_group.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace {

namespace fs = std::filesystem;
using Orbane::CgroupPlace;
using Orbane::ResourceGroup;

/// A folder tree that looks like the kernel's.
class Group : public ::testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/var/tmp/cgroup-XXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    folder_ = name;
    place_ = {folder_ + "/mount", folder_ + "/self", false};
    MakeGroup("");
    Self("/system.slice/keeld.service");
    MakeGroup("/system.slice/keeld.service");
  }
  void TearDown() override { fs::remove_all(folder_); }

  void Self(std::string const& path) const {
    std::ofstream(place_.self) << "1:cpu:/elsewhere\n0::" << path << "\n";
  }
  void MakeGroup(std::string const& path) const {
    fs::create_directories(place_.mount + path);
    for (char const* const file : {"/cgroup.procs", "/cgroup.subtree_control", "/memory.max"}) {
      std::ofstream(place_.mount + path + file) << "";
    }
  }
  std::string Content(std::string const& path) const {
    std::ifstream file(place_.mount + path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
  }
  bool Delegate(std::string const& path) const {
    return setxattr((place_.mount + path).c_str(), "user.delegate", "1", 1, 0) == 0;
  }

  std::string folder_;
  CgroupPlace place_;
};

TEST_F(Group, ThereIsNoneUnlessTheHostHasOne) {
  EXPECT_FALSE(ResourceGroup::Open("g", 1000, place_).valid());
  EXPECT_FALSE(fs::exists(place_.mount + "/system.slice/keeld.service/g"))
      << "nothing is made without delegation";
}

TEST_F(Group, OneThatStandsBelowTheDaemonsOwnIsJoined) {
  MakeGroup("/system.slice/keeld.service/g");
  ResourceGroup const group = ResourceGroup::Open("g", std::nullopt, place_);
  ASSERT_TRUE(group.valid());
  EXPECT_FALSE(group.limitsMemory());
  EXPECT_GE(group.procs(), 3);
  EXPECT_EQ(fcntl(group.procs(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  ASSERT_EQ(write(group.procs(), "0", 1), 1);
  EXPECT_EQ(Content("/system.slice/keeld.service/g/cgroup.procs"), "0");
  EXPECT_EQ(Content("/system.slice/keeld.service/g/memory.max"), "");
}

TEST_F(Group, ALimitIsWritten) {
  MakeGroup("/system.slice/keeld.service/g");
  ResourceGroup const group = ResourceGroup::Open("g", 200U * 1024 * 1024, place_);
  EXPECT_TRUE(group.limitsMemory());
  EXPECT_EQ(Content("/system.slice/keeld.service/g/memory.max"), "209715200");
}

TEST_F(Group, WithoutTheMemoryControllerItIsJoinedButDoesNotLimit) {
  MakeGroup("/system.slice/keeld.service/g");
  fs::remove(place_.mount + "/system.slice/keeld.service/g/memory.max");
  ResourceGroup const group = ResourceGroup::Open("g", 1000, place_);
  EXPECT_TRUE(group.valid());
  EXPECT_FALSE(group.limitsMemory());
}

TEST_F(Group, TheDaemonInItsOwnLeafFindsTheGroupsBesideIt) {
  Self("/system.slice/keeld.service/daemon");
  MakeGroup("/system.slice/keeld.service/g");
  EXPECT_TRUE(ResourceGroup::Open("g", std::nullopt, place_).valid());
}

TEST_F(Group, DelegationLetsItBeMade) {
  std::string const base = "/system.slice/keeld.service";
  if (!Delegate(base)) {
    GTEST_SKIP() << "no extended attributes here";
  }
  std::ofstream(place_.mount + base + "/cgroup.procs") << "4711\n";
  MakeGroup(base + "/daemon");
  ResourceGroup::Open("g", std::nullopt, place_);
  EXPECT_TRUE(fs::is_directory(place_.mount + base + "/g"));
  EXPECT_EQ(Content(base + "/daemon/cgroup.procs"), "4711") << "the processes moved to a leaf";
  EXPECT_EQ(Content(base + "/cgroup.subtree_control"), "+memory");
}

TEST_F(Group, HostsWithoutTheUnifiedHierarchyHaveNone) {
  std::ofstream(place_.self) << "1:cpu:/elsewhere\n";
  EXPECT_FALSE(ResourceGroup::Open("g", 1000, place_).valid());
  fs::remove(place_.self);
  EXPECT_FALSE(ResourceGroup::Open("g", 1000, place_).valid());
  CgroupPlace real = place_;
  real.requireCgroupFs = true;
  Self("/system.slice/keeld.service");
  MakeGroup("/system.slice/keeld.service/g");
  EXPECT_FALSE(ResourceGroup::Open("g", 1000, real).valid()) << "a folder that is no control group";
}

TEST_F(Group, APathOutsideTheNamespaceIsNotFollowed) {
  Self("/../other");
  fs::create_directories(folder_ + "/other/g");
  std::ofstream(folder_ + "/other/g/cgroup.procs") << "";
  EXPECT_FALSE(ResourceGroup::Open("g", std::nullopt, place_).valid());
}

TEST_F(Group, MovingLeavesOneOwner) {
  MakeGroup("/system.slice/keeld.service/g");
  ResourceGroup first = ResourceGroup::Open("g", std::nullopt, place_);
  int const descriptor = first.procs();
  {
    ResourceGroup const second(std::move(first));
    EXPECT_EQ(second.procs(), descriptor);
  }
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1) << "closed";
}

}  // namespace
