// Task database against bare SQLite: the same table, the same transactions, WAL mode with synchronous NORMAL.
//
//   bench_taskdb [--ratios] [--records N]
#include <sqlite3.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "platform/taskdb/task_manager.h"

namespace {

constexpr int kRounds = 7;
constexpr int kTasksPerRound = 1500;
constexpr int kReadsPerRound = 3000;
constexpr int kRetries = 5;

double Seconds(std::function<void()> const& work) {
  auto const start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void Check(int result) {
  if (result != SQLITE_OK && result != SQLITE_DONE && result != SQLITE_ROW) {
    std::fprintf(stderr, "sqlite: %s\n", sqlite3_errstr(result));
    std::exit(1);
  }
}

/// One connection that stays open, statements prepared once: as fast as SQLite does it.
class BareSqlite {
 public:
  explicit BareSqlite(std::string const& path) {
    Check(sqlite3_open(path.c_str(), &database_));
    Check(sqlite3_exec(
        database_,
        "PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL;"
        "CREATE TABLE task (id TEXT PRIMARY KEY NOT NULL, name TEXT NOT NULL, status TEXT NOT NULL, "
        "last_update TEXT NOT NULL, progress INTEGER NOT NULL) STRICT;",
        nullptr, nullptr, nullptr));
    Check(sqlite3_prepare_v2(database_, "BEGIN IMMEDIATE", -1, &begin_, nullptr));
    Check(sqlite3_prepare_v2(database_, "COMMIT", -1, &commit_, nullptr));
    Check(sqlite3_prepare_v2(database_, "INSERT INTO task VALUES (?, ?, 'PENDING', ?, 0)", -1, &insert_,
                             nullptr));
    Check(sqlite3_prepare_v2(database_, "UPDATE task SET progress = ?, last_update = ? WHERE id = ?", -1,
                             &update_, nullptr));
  }
  ~BareSqlite() {
    for (sqlite3_stmt* const statement : {begin_, commit_, insert_, update_}) {
      sqlite3_finalize(statement);
    }
    sqlite3_close(database_);
  }

  void Create(std::string const& id) {
    Bind(insert_, 1, id);
    Bind(insert_, 2, "com.orbane.ryn.keel_daemon.software.scan");
    Bind(insert_, 3, kTime);
    Transact(insert_);
  }
  void Update(std::string const& id, int progress) {
    Check(sqlite3_bind_int(update_, 1, progress));
    Bind(update_, 2, kTime);
    Bind(update_, 3, id);
    Transact(update_);
  }

 private:
  static constexpr char kTime[] = "2026-01-01T00:00:00.000Z";

  static void Bind(sqlite3_stmt* statement, int parameter, std::string const& text) {
    Check(sqlite3_bind_text(statement, parameter, text.data(), static_cast<int>(text.size()),
                            SQLITE_TRANSIENT));
  }
  void Transact(sqlite3_stmt* statement) const {
    for (sqlite3_stmt* const each : {begin_, statement, commit_}) {
      Check(sqlite3_step(each));
      Check(sqlite3_reset(each));
    }
  }

  sqlite3* database_ = nullptr;
  sqlite3_stmt* begin_ = nullptr;
  sqlite3_stmt* commit_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
  sqlite3_stmt* update_ = nullptr;
};

std::string IdOf(int round, int number) {
  char text[64];
  std::snprintf(text, sizeof text, "%08x-%04x-4000-8000-000000000000", number * 2654435761U, round);
  return text;
}

void Fill(TaskDB::TaskManager& manager, std::string const& path, int records) {
  manager.init();
  sqlite3* database = nullptr;
  Check(sqlite3_open(path.c_str(), &database));
  std::string const sql =
      "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " + std::to_string(records) +
      ") INSERT INTO task (id, name, status, last_update, start_time, end_time, result) SELECT "
      "printf('%08x-0000-4000-8000-000000000000', i * 2654435761 % 4294967296), "
      "'com.orbane.ryn.keel_daemon.software.scan', "
      "'SUCCEEDED', '2026-01-01T00:00:00.000Z', '2026-01-01T00:00:00.000Z', '2026-01-01T00:00:00.000Z', "
      "'{\"a\":1}' "
      "FROM n";
  Check(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr));
  sqlite3_close(database);
}

double GetSeconds(TaskDB::TaskManager& manager, int records) {
  return Seconds([&] {
    TaskDB::TaskInfo info;
    for (int i = 0; i < kReadsPerRound; ++i) {
      if (!manager.get(IdOf(0, 1 + i % records).c_str(), info, kRetries)) {
        std::fprintf(stderr, "a record is missing\n");
        std::exit(1);
      }
    }
  });
}

}  // namespace

int main(int argc, char** argv) {
  bool ratios = false;
  int records = 100000;
  for (int i = 1; i < argc; ++i) {
    ratios = ratios || std::strcmp(argv[i], "--ratios") == 0;
    if (std::strcmp(argv[i], "--records") == 0 && i + 1 < argc) {
      records = std::atoi(argv[++i]);
    }
  }
  char folder[] = "/tmp/taskdb-bench-XXXXXX";
  if (mkdtemp(folder) == nullptr) {
    return 1;
  }
  std::string const base = folder;
  auto const manager = TaskDB::TaskManager::FromPath(base + "/tasks.db");
  manager->init();
  BareSqlite bare(base + "/bare.db");

  std::vector<double> quotients;
  std::vector<double> ours;
  for (int round = 0; round < kRounds; ++round) {
    double const bareTime = Seconds([&] {
      for (int i = 0; i < kTasksPerRound; ++i) {
        bare.Create(IdOf(round, i));
        bare.Update(IdOf(round, i), 50);
      }
    });
    double const ourTime = Seconds([&] {
      for (int i = 0; i < kTasksPerRound; ++i) {
        manager->createNamedTask(IdOf(round, i).c_str(), "com.orbane.ryn.keel_daemon.software.scan",
                                 kRetries);
        manager->setProgress(IdOf(round, i).c_str(), 50, "");
      }
    });
    quotients.push_back(bareTime / ourTime);
    ours.push_back(ourTime / (2 * kTasksPerRound) * 1e6);
  }

  auto const few = TaskDB::TaskManager::FromPath(base + "/few.db");
  auto const many = TaskDB::TaskManager::FromPath(base + "/many.db");
  Fill(*few, base + "/few.db", 10);
  Fill(*many, base + "/many.db", records);
  std::vector<double> slowdowns;
  std::vector<double> reads;
  for (int round = 0; round < kRounds; ++round) {
    double const fewTime = GetSeconds(*few, 10);
    double const manyTime = GetSeconds(*many, records);
    slowdowns.push_back(manyTime / fewTime);
    reads.push_back(manyTime / kReadsPerRound * 1e6);
  }
  double const list = Seconds([&] { many->list(kRetries); });
  double const init = Seconds([&] { manager->init(); });

  if (ratios) {
    std::printf("taskdb %.3f\ntaskdb_get %.3f\n", Median(quotients), Median(slowdowns));
  } else {
    std::printf("create and update ÷ bare SQLite (rate): %.2f; %.1f µs a call\n", Median(quotients),
                Median(ours));
    std::printf("get with %d records ÷ with 10 (time): %.2f; %.1f µs a call\n", records, Median(slowdowns),
                Median(reads));
    std::printf("list of %d records: %.1f ms; init: %.1f ms\n", records, list * 1e3, init * 1e3);
  }
  std::filesystem::remove_all(base);
  return 0;
}
