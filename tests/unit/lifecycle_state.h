// The daemon's state directory as a test looks at it. For tests that run in the sandbox.
#pragma once

#include <boost/filesystem.hpp>
#include <chrono>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "support/translator.h"
#include "tasks/operation_launch.h"
#include "tasks/task_files.h"
#include "tasks/task_store.h"
#include "tests/unit/text_files.h"

namespace LifecycleState {

using TextFiles::Content;
using TextFiles::Put;

/// Starts over: the directory is there and empty, but for a fresh database.
inline void Reset() {
  boost::filesystem::remove_all(LifeCycle::kStateDirectory);
  boost::filesystem::create_directories(LifeCycle::kStateDirectory);
  LifeCycle::TaskStore const store(LifeCycle::kTaskStorePath, true);
}

/// Installs the English catalogues of the source tree and has them loaded.
inline void InstallCatalogues(std::string const& sourceFolder) {
  std::string const target = "/usr/lib/orbane/configmanager/locale/en";
  boost::filesystem::create_directories("/usr/lib/orbane/configmanager/apply_modules");
  for (auto const& entry : boost::filesystem::directory_iterator(sourceFolder + "/catalogues/en")) {
    Put(target + "/" + entry.path().filename().string(), Content(entry.path().string()));
  }
  LifeCycle::GetDefaultMessage("com.orbane.ryn.task.description");
}

inline bool Exists(std::string const& path) {
  return boost::filesystem::exists(boost::filesystem::symlink_status(path));
}

/// Names in the state directory, those of the database aside.
inline std::set<std::string> Files() {
  std::set<std::string> names;
  for (auto const& entry : boost::filesystem::directory_iterator(LifeCycle::kStateDirectory)) {
    std::string const name = entry.path().filename().string();
    if (name.rfind("task-status.json", 0) != 0) {
      names.insert(name);
    }
  }
  return names;
}

inline std::map<std::string, TaskDB::TaskInfo> Records() {
  return LifeCycle::TaskStore(LifeCycle::kTaskStorePath, false).list(5);
}

/// Puts itself in place of the launch path's world: no sleep sleeps and no command starts.
class FakeLaunch {
 public:
  FakeLaunch() : saved_(LifeCycle::CurrentLaunchEnvironment()) {
    auto& environment = LifeCycle::CurrentLaunchEnvironment();
    environment.sleep = [this](std::chrono::seconds time) {
      slept += time;
      ++sleeps;
      onSleep();
    };
    environment.startCommand = [this](std::string const& command) {
      commands.push_back(command);
      return onStart();
    };
  }
  ~FakeLaunch() { LifeCycle::CurrentLaunchEnvironment() = saved_; }
  FakeLaunch(FakeLaunch const&) = delete;
  FakeLaunch& operator=(FakeLaunch const&) = delete;

  /// The world that it stands in for.
  LifeCycle::LaunchEnvironment const& real() const { return saved_; }

  std::function<void()> onSleep = [] {};
  std::function<int()> onStart = [] { return 0; };
  std::chrono::seconds slept{0};
  int sleeps = 0;
  std::vector<std::string> commands;

 private:
  LifeCycle::LaunchEnvironment saved_;
};

}  // namespace LifecycleState
