// The C++ library as a command, for tests with several processes and languages:
//
//   taskdb_helper FILE init | list | get ID | create ID | create-named ID NAME | start ID | progress ID
//   PERCENT
//                 | notify ID JSON | complete ID JSON | fail ID JSON | fail-with-result ID JSON JSON
//                 | hammer PREFIX [COUNT]
//
// Texts in hexadecimal both ways where they are values. `list` and `get` print a line a record, fields parted
// by blanks, "-" for an empty one. `hammer` makes and ends tasks until it is killed, and prints each id once
// it is ended. Exit status: 0; 10 lock, 11 file not found, 12 not readable, 13 any other failure, with its
// text on stderr.
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/taskdb/task_manager.h"

namespace {

constexpr int kRetries = 50;

std::string Hexadecimal(std::string const& text) {
  if (text.empty()) {
    return "-";
  }
  std::string result;
  for (unsigned char const byte : text) {
    char two[3];
    std::snprintf(two, sizeof two, "%02x", byte);
    result += two;
  }
  return result;
}

std::string FromHexadecimal(std::string const& text) {
  std::string result;
  if (text != "-") {
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
      result += static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16));
    }
  }
  return result;
}

void Print(TaskDB::TaskInfo const& info) {
  std::vector<std::string> fields{info.id,
                                  info.name,
                                  info.user,
                                  info.status,
                                  info.lastUpdate,
                                  info.startTime,
                                  info.endTime,
                                  std::to_string(info.progressCompleted),
                                  std::to_string(info.progressTotal),
                                  info.result,
                                  info.error,
                                  info.errorId};
  std::string line;
  for (std::string const& field : fields) {
    line += Hexadecimal(field) + " ";
  }
  auto const append = [&line](auto const& list) {
    line += std::to_string(list.size()) + " ";
    for (std::string const& element : list) {
      line += Hexadecimal(element) + " ";
    }
  };
  append(info.errorArgs);
  append(info.notifications);
  line.pop_back();
  std::puts(line.c_str());
}

void Hammer(TaskDB::TaskManager& manager, std::string const& prefix, long count) {
  for (long i = 0; count < 0 || i < count; ++i) {
    std::string const id = prefix + std::to_string(i);
    manager.createNamedTask(id.c_str(), "hammer", kRetries);
    manager.startTask(id.c_str(), kRetries);
    manager.setProgress(id.c_str(), 50, "");
    manager.addNotification(id.c_str(), "{}");
    manager.completeTask(id.c_str(), "\"done\"", kRetries);
    std::puts(id.c_str());
    std::fflush(stdout);
  }
}

void Run(TaskDB::TaskManager& manager, std::vector<std::string> const& words) {
  auto const& operation = words.at(0);
  auto const id = [&words] { return words.at(1).c_str(); };
  auto const value = [&words](std::size_t i) { return FromHexadecimal(words.at(i)); };
  std::map<std::string, std::function<void()>> const operations{
      {"init", [&] { manager.init(); }},
      {"list",
       [&] {
         for (auto const& [key, info] : manager.list(kRetries)) {
           Print(info);
         }
       }},
      {"get",
       [&] {
         TaskDB::TaskInfo info;
         if (!manager.get(id(), info, kRetries)) {
           throw std::runtime_error("not found");
         }
         Print(info);
       }},
      {"create", [&] { manager.createTask(id(), kRetries); }},
      {"create-named", [&] { manager.createNamedTask(id(), words.at(2).c_str(), kRetries); }},
      {"start", [&] { manager.startTask(id(), kRetries); }},
      {"progress", [&] { manager.setProgress(id(), std::stoi(words.at(2)), "not stored"); }},
      {"notify", [&] { manager.addNotification(id(), value(2)); }},
      {"complete", [&] { manager.completeTask(id(), value(2), kRetries); }},
      {"fail", [&] { manager.failTask(id(), value(2), kRetries); }},
      {"fail-with-result", [&] { manager.failTaskWithResult(id(), value(2), value(3), kRetries); }},
      {"hammer", [&] { Hammer(manager, words.at(1), words.size() > 2 ? std::stol(words[2]) : -1); }},
  };
  operations.at(operation)();
}

}  // namespace

int main(int argc, char** argv) {
  try {
    std::vector<std::string> const words(argv + 1, argv + argc);
    Run(*TaskDB::TaskManager::FromPath(words.at(0)), {words.begin() + 1, words.end()});
    return 0;
  } catch (LifeCycle::AccessLockError const& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 10;
  } catch (LifeCycle::TaskFileNotFoundError const& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 11;
  } catch (LifeCycle::JsonParseError const& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 12;
  } catch (std::exception const& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 13;
  }
}
