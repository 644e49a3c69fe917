#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "other_process.h"
#include "platform/logging/test_only_log_capture.h"
#include "runtime/errors/categories.h"
#include "runtime/l10n/localizer.h"
#include "support/gzip.h"
#include "tasks/make_info.h"
#include "tasks/task_files.h"
#include "tasks/task_schedular.h"
#include "tasks/tasks_svc.h"
#include "tests/unit/lifecycle_state.h"
#include "tests/unit/service_call.h"

namespace {

using namespace Lumo::Data;
using Orbane::CapturedLine;
using ServiceCall::Answer;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace Svc = Com::Orbane::Halo::TasksSvc;

CompoundValue const* Struct(DataValue const* value) {
  while (auto const* const optional = As<OptionalValue>(value)) {
    value = optional->Inner();
  }
  return As<CompoundValue>(value);
}

/// The field of a compound without its optional wrapping; null when it is unset.
DataValue const* Field(DataValue const* value, std::string_view name) {
  CompoundValue const* const compound = Struct(value);
  DataValue const* field = compound != nullptr ? compound->Find(name) : nullptr;
  while (auto const* const optional = As<OptionalValue>(field)) {
    field = optional->Inner();
  }
  return field;
}

std::string Text(DataValue const* value) {
  auto const* const text = As<StringValue>(value);
  return text != nullptr ? std::string(text->value()) : "no text";
}

class TaskService : public testing::Test {
 protected:
  static void SetUpTestSuite() { LifecycleState::InstallCatalogues(KEELD_SOURCE_DIR); }
  void SetUp() override { LifecycleState::Reset(); }

  Answer Get(std::string const& id) {
    return Checked(ServiceCall::Call(api_, "get", R"({"task":")" + id + R"("})"));
  }
  Answer List() { return Checked(ServiceCall::Call(api_, "list", "{}")); }
  Answer Cancel(std::string const& id) {
    return Checked(ServiceCall::Call(api_, "cancel", R"({"task":")" + id + R"("})"));
  }
  static Answer Checked(Answer const& answer) {
    EXPECT_EQ(answer.answers, 1);
    return answer;
  }

  std::shared_ptr<Lumo::Provider::AsyncApiInterface const> const api_ =
      Svc::AsyncServiceBinder::BindImplementation(std::make_shared<Svc::AsyncServiceImpl>(),
                                                  Lumo::L10n::LocalizerHelpers::GetDefaultLocalizer());
  Orbane::TestOnlyLogCapture log_;
};

TEST_F(TaskService, PendingTask) {
  ASSERT_TRUE(OtherProcess::Run("tasks.create_task('t')"));
  Answer const answer = Get("t");
  ASSERT_TRUE(answer.output) << answer.Error();
  CompoundValue const* const info = Struct(answer.output.get());
  EXPECT_EQ(info->name(), "com.orbane.halo.task.info");
  EXPECT_EQ(Text(Field(info, "status")), "PENDING");
  EXPECT_EQ(Text(Field(info, "operation")), "unknown");
  EXPECT_EQ(Text(Field(info, "service")), "keeld");
  EXPECT_FALSE(As<BooleanValue>(Field(info, "cancelable"))->value());
  EXPECT_EQ(Text(Field(Field(info, "description"), "id")), "com.orbane.ryn.task.description");
  EXPECT_EQ(Text(Field(Field(info, "description"), "default_message")),
            "A lifecycle operation of this host.");
  EXPECT_EQ(Text(Field(Field(info, "description"), "localized")), "A lifecycle operation of this host.");
  for (char const* unset : {"progress", "start_time", "end_time", "result", "error", "user", "notifications",
                            "parent", "target"}) {
    EXPECT_EQ(Field(info, unset), nullptr) << unset;
  }
  EXPECT_THAT(Text(Field(info, "last_update_time")), StartsWith("20"));
  EXPECT_EQ(log_.lines(), (std::vector<CapturedLine>{{2, "[Get]: Getting the task with id:'t'"}}));
}

TEST_F(TaskService, PendingTaskShowsNothingOfARun) {
  ASSERT_TRUE(
      OtherProcess::Run("tasks.create_task('t'); tasks.start_task('t'); tasks.complete_task('t', '{broken')\n"
                        "sql(\"UPDATE task SET status = 'PENDING'\")\n"
                        "tasks.create_task('e'); sql(\"UPDATE task SET status = '' WHERE id = 'e'\")"));
  for (char const* id : {"t", "e"}) {
    Answer const answer = Get(id);
    ASSERT_TRUE(answer.output) << answer.Error();
    EXPECT_EQ(Text(Field(answer.output.get(), "status")), "PENDING");
    EXPECT_EQ(Field(answer.output.get(), "progress"), nullptr);
    EXPECT_EQ(Field(answer.output.get(), "start_time"), nullptr);
    EXPECT_EQ(Field(answer.output.get(), "end_time"), nullptr);
    EXPECT_EQ(Field(answer.output.get(), "result"), nullptr);
  }
  EXPECT_EQ(log_.lines().back(), (CapturedLine{3, "Task has no status, use pending"}));
}

TEST_F(TaskService, RunningTask) {
  ASSERT_TRUE(
      OtherProcess::Run("tasks.create_named_task('t', 'com.orbane.sample.apply'); tasks.start_task('t'); "
                        "tasks.set_progress('t', 42)\n"
                        "sql(\"UPDATE task SET user = 'root', start_time = '2026-01-02T03:04:05.678Z'\")"));
  Answer const answer = Get("t");
  ASSERT_TRUE(answer.output) << answer.Error();
  DataValue const* const info = answer.output.get();
  EXPECT_EQ(Text(Field(info, "status")), "RUNNING");
  EXPECT_EQ(Text(Field(info, "operation")), "com.orbane.sample.apply");
  EXPECT_EQ(Text(Field(info, "user")), "root");
  EXPECT_EQ(Text(Field(info, "start_time")), "2026-01-02T03:04:05.678Z");
  EXPECT_EQ(Field(info, "end_time"), nullptr);
  DataValue const* const progress = Field(info, "progress");
  EXPECT_EQ(As<IntegerValue>(Field(progress, "total"))->value(), 100);
  EXPECT_EQ(As<IntegerValue>(Field(progress, "completed"))->value(), 42);
  EXPECT_EQ(Text(Field(Field(progress, "message"), "id")), "com.orbane.ryn.task.progress");
  EXPECT_EQ(Text(Field(Field(progress, "message"), "default_message")), "The operation is at work.");
}

TEST_F(TaskService, RunningTaskShowsNoOutcome) {
  ASSERT_TRUE(
      OtherProcess::Run("tasks.create_task('t'); tasks.start_task('t'); tasks.fail_task('t', '{broken')\n"
                        "sql(\"UPDATE task SET status = 'RUNNING', result = '{broken'\")"));
  Answer const answer = Get("t");
  ASSERT_TRUE(answer.output) << answer.Error();
  EXPECT_EQ(Field(answer.output.get(), "result"), nullptr);
  EXPECT_EQ(Field(answer.output.get(), "error"), nullptr);
  EXPECT_EQ(Field(answer.output.get(), "end_time"), nullptr);
  EXPECT_NE(Field(answer.output.get(), "progress"), nullptr);
}

TEST_F(TaskService, SucceededTask) {
  ASSERT_TRUE(OtherProcess::Run(
      "import gzip\n"
      "result = '{\"@struct\":\"com.orbane.sample\",\"count\":7,\"note\":{\"@optional\":null}}'\n"
      "for id, text in ('plain', result), ('packed', gzip.compress(result.encode())), ('void', ''):\n"
      "    tasks.create_task(id); tasks.start_task(id); tasks.complete_task(id, text)"));
  for (char const* id : {"plain", "packed"}) {
    Answer const answer = Get(id);
    ASSERT_TRUE(answer.output) << answer.Error();
    DataValue const* const result = Field(answer.output.get(), "result");
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(Struct(result)->name(), "com.orbane.sample");
    EXPECT_EQ(As<IntegerValue>(Field(result, "count"))->value(), 7);
    EXPECT_EQ(Text(Field(answer.output.get(), "status")), "SUCCEEDED");
    EXPECT_NE(Field(answer.output.get(), "end_time"), nullptr);
    EXPECT_EQ(Field(answer.output.get(), "error"), nullptr);
  }
  Answer const answer = Get("void");
  ASSERT_TRUE(answer.output) << answer.Error();
  EXPECT_EQ(Field(answer.output.get(), "result"), nullptr);
}

TEST_F(TaskService, FailedTasks) {
  ASSERT_TRUE(OtherProcess::Run(
      "def task(id):\n"
      "    tasks.create_task(id); tasks.start_task(id); return id\n"
      "error = '{\"@error\":\"com.orbane.lumo.std.errors.not_found\",\"messages\":[]}'\n"
      "tasks.fail_task(task('value'), error)\n"
      "tasks.fail_task_with_message(task('message'), 'com.orbane.ryn.task.notfound.error', ['x y'])\n"
      "tasks.fail_task_with_message(task('unknown'), 'com.orbane.ryn.gone', [])\n"
      "tasks.fail_task_with_result(task('both'), '1', error)\n"
      "tasks.fail_task_with_message(task('id-wins'), 'com.orbane.ryn.task.contention', [])\n"
      "sql('UPDATE task SET error = ? WHERE id = ?', error, 'id-wins')\n"
      "tasks.fail_task(task('bad'), '{broken')\n"
      "tasks.fail_task(task('silent'), '')"));
  struct Case {
    char const* id;
    char const* error;    // as Answer::Error writes it; null for none
    char const* message;  // default message of the first message
    std::vector<CapturedLine> lines;
  };
  std::string const notFound = LifeCycle::GetDefaultMessage("com.orbane.ryn.task.notfound.error");
  std::string const filled = std::string(notFound).replace(notFound.find("{1}"), 3, "x y");
  std::string const contention = LifeCycle::GetDefaultMessage("com.orbane.ryn.task.contention");
  log_.Clear();
  for (Case const& c : {
           Case{"value", "not_found", nullptr, {}},
           Case{"message", "error: com.orbane.ryn.task.notfound.error(x y)", filled.c_str(), {}},
           Case{"both", "not_found", nullptr, {}},
           Case{"id-wins", "error: com.orbane.ryn.task.contention()", contention.c_str(), {}},
           Case{"silent", nullptr, nullptr, {{1, "Task silent failed without any error details."}}},
       }) {
    SCOPED_TRACE(c.id);
    log_.Clear();
    Answer const answer = Get(c.id);
    ASSERT_TRUE(answer.output) << answer.Error();
    EXPECT_EQ(Text(Field(answer.output.get(), "status")), "FAILED");
    DataValue const* const error = Field(answer.output.get(), "error");
    if (c.error == nullptr) {
      EXPECT_EQ(error, nullptr);
    } else {
      ASSERT_NE(error, nullptr);
      Answer shown;
      shown.error = std::shared_ptr<ErrorValue const>(answer.output, As<ErrorValue>(error));
      EXPECT_EQ(shown.Error(), c.error);
      if (c.message != nullptr) {
        auto const* const messages = As<ListValue>(Field(error, "messages"));
        EXPECT_EQ(Text(Field(messages->Item(0), "default_message")), c.message);
      }
    }
    auto lines = log_.lines();
    lines.erase(lines.begin());  // of Get
    EXPECT_EQ(lines, c.lines);
  }
  EXPECT_NE(Field(Get("both").output.get(), "result"), nullptr);

  log_.Clear();
  Answer const bad = Get("bad");
  ASSERT_TRUE(bad.output);
  EXPECT_EQ(Field(bad.output.get(), "error"), nullptr);
  EXPECT_THAT(log_.texts(0), ElementsAre(StartsWith("Deserialize from JSON failed: "),
                                         "Error de-serializing task exception: std::exception"));

  Answer const unknown = Get("unknown");
  auto const* const messages = As<ListValue>(Field(Field(unknown.output.get(), "error"), "messages"));
  ASSERT_NE(messages, nullptr);
  EXPECT_EQ(Text(Field(messages->Item(0), "default_message")), "Unknown message.");
}

TEST_F(TaskService, RecordsThatContradictThemselves) {
  ASSERT_TRUE(OtherProcess::Run(
      "def task(id, **columns):\n"
      "    tasks.create_task(id); tasks.start_task(id)\n"
      "    for name, value in columns.items():\n"
      "        sql(f'UPDATE task SET {name} = ? WHERE id = ?', value, id)\n"
      "task('1', status='STRANGE')\n"
      "task('2', start_time='')\n"
      "task('3', status='SUCCEEDED', start_time='')\n"
      "task('4', status='SUCCEEDED')\n"
      "task('5', status='FAILED')\n"
      "task('6', status='SUCCEEDED', end_time='2026-01-02T03:04:05.678Z', result='{broken')\n"
      "task('7', status='SUCCEEDED', end_time='2026-01-02T03:04:05.678Z', result='null')\n"
      "task('8', status='SUCCEEDED', end_time='2026-01-02T03:04:05.678Z', result=b'\\x1f\\x8bxyz')\n"
      "task('good')"));
  struct Case {
    char const* id;
    std::string text;
    int linesBefore;  // of the JSON helpers and the result
  };
  std::vector<Case> const cases = {{"1", "Task 1 has invalid status STRANGE", 0},
                                   {"2", "Task 2 does not have start time", 0},
                                   {"3", "Task 3 does not have start time", 0},
                                   {"4", "Task 4 does not have end time", 0},
                                   {"5", "Task 5 does not have end time", 0},
                                   {"6", "Result of task 6 cannot be de-serialized", 2},
                                   {"7", "Result of task 7 cannot be de-serialized", 0},
                                   {"8", "Result of task 8 cannot be de-serialized", 2}};
  for (Case const& c : cases) {
    log_.Clear();
    Answer const answer = Get(c.id);
    EXPECT_EQ(answer.Error(), "error: com.orbane.ryn.task.parse.error()") << c.id;
    auto const failures = log_.texts(0);
    ASSERT_EQ(failures.size(), static_cast<std::size_t>(c.linesBefore) + 1) << c.id;
    EXPECT_EQ(failures.back(), "[Get] :  " + c.text);
    if (c.linesBefore == 2) {
      EXPECT_EQ(failures[1], "Error de-serializing task result: std::exception");
    }
  }
  log_.Clear();
  Answer const list = List();
  ASSERT_TRUE(list.output) << list.Error();
  ASSERT_EQ(As<ListValue>(list.output.get())->size(), 1U);
  for (Case const& c : cases) {
    EXPECT_THAT(log_.texts(0), Contains("[List] :  " + c.text + ", skipping task"));
  }
}

TEST_F(TaskService, BadTimesAreTheDefaultTime) {
  ASSERT_TRUE(
      OtherProcess::Run("tasks.create_task('t'); tasks.start_task('t')\n"
                        "sql(\"UPDATE task SET last_update = 'yesterday', start_time = '?'\")"));
  Answer const answer = Get("t");
  ASSERT_TRUE(answer.output) << answer.Error();
  EXPECT_EQ(Text(Field(answer.output.get(), "last_update_time")), "1970-01-01T00:00:00.000Z");
  EXPECT_EQ(Text(Field(answer.output.get(), "start_time")), "1970-01-01T00:00:00.000Z");
}

TEST_F(TaskService, Notifications) {
  ASSERT_TRUE(OtherProcess::Run(
      "def note(id, type):\n"
      "    text = '{' + type + '\"id\":\"' + id + '\",\"time\":\"2026-01-02T03:04:05.678Z\",'\n"
      "    text += '\"message\":{\"id\":\"m\",\"default_message\":\"d\",\"args\":[]}}'\n"
      "    tasks.add_notification('t', text)\n"
      "tasks.create_task('t')\n"
      "note('untyped', ''); note('error', '\"type\":\"ERROR\",'); note('strange', '\"type\":\"STRANGE\",')\n"
      "note('warning', '\"type\":\"WARNING\",'); note('info', '\"type\":\"INFO\",'); note('warning2', "
      "'\"type\":1,')\n"
      "tasks.add_notification('t', '{\"id\":7}'); tasks.add_notification('t', '{broken')\n"
      "tasks.add_notification('t', 'null')"));
  Answer const answer = Get("t");
  ASSERT_TRUE(answer.output) << answer.Error();
  DataValue const* const notifications = Field(answer.output.get(), "notifications");
  ASSERT_NE(notifications, nullptr);
  auto const ids = [&](char const* list) {
    std::vector<std::string> found;
    auto const* const items = As<ListValue>(Field(notifications, list));
    for (std::size_t i = 0; items != nullptr && i < items->size(); ++i) {
      found.push_back(Text(Field(items->Item(i), "id")));
    }
    return found;
  };
  EXPECT_THAT(ids("info"), ElementsAre("untyped", "strange", "info"));
  EXPECT_THAT(ids("warnings"), ElementsAre("warning", "warning2"));
  EXPECT_THAT(ids("errors"), ElementsAre("error"));
  EXPECT_THAT(log_.texts(0), ElementsAre(StartsWith("[_MakeInfo] Could not adapt to native types : "),
                                         StartsWith("Deserialize from JSON failed: ")));
}

TEST_F(TaskService, OneBadNotificationAlone) {
  ASSERT_TRUE(OtherProcess::Run(
      "tasks.create_task('t'); tasks.add_notification('t', '{\"id\":7}')\n"
      "tasks.create_task('w'); tasks.add_notification('w', '{\"type\":\"WARNING\",\"id\":\"w\","
      "\"time\":\"2026-01-02T03:04:05Z\",\"message\":{\"id\":\"m\",\"default_message\":\"d\","
      "\"args\":[]},\"originator\":\"pak[x]\"}')"));
  Answer const answer = Get("t");
  ASSERT_TRUE(answer.output) << answer.Error();
  EXPECT_EQ(Field(answer.output.get(), "notifications"), nullptr);
  Answer const one = Get("w");
  DataValue const* const notifications = Field(one.output.get(), "notifications");
  EXPECT_EQ(Field(notifications, "info"), nullptr);  // empty lists stay unset
  EXPECT_EQ(Field(notifications, "errors"), nullptr);
  auto const* const warnings = As<ListValue>(Field(notifications, "warnings"));
  ASSERT_EQ(warnings->size(), 1U);
  EXPECT_EQ(Text(Field(warnings->Item(0), "originator")), "pak[x]");
}

TEST_F(TaskService, GetOfUnknownId) {
  Answer const answer = Get("no-such-task");
  EXPECT_EQ(answer.Error(), "not_found: com.orbane.ryn.task.notfound.error(no-such-task)");
  auto const* const messages = As<ListValue>(Field(answer.error.get(), "messages"));
  EXPECT_THAT(Text(Field(messages->Item(0), "default_message")), HasSubstr("'no-such-task'"));
  EXPECT_EQ(log_.lines(),
            (std::vector<CapturedLine>{{2, "[Get]: Getting the task with id:'no-such-task'"},
                                       {2, "[Get]: Task with identifier 'no-such-task' not found."}}));
}

TEST_F(TaskService, GetTakesTheWholeId) {
  ASSERT_TRUE(OtherProcess::Run("tasks.create_task('t')"));
  EXPECT_THAT(Get("t\\u0000").Error(), StartsWith("not_found: com.orbane.ryn.task.notfound.error(t"));
  EXPECT_THAT(Get("t\\u0000x").Error(), StartsWith("not_found: com.orbane.ryn.task.notfound.error(t"));
  EXPECT_EQ(Get("t").Error(), "");
}

/// A type without text was never set, and what was never set can't be written.
TEST_F(TaskService, RecordThatCannotBeConverted) {
  ASSERT_TRUE(OtherProcess::Run(
      "tasks.create_task('a'); tasks.create_task('t'); tasks.create_task('z'); tasks.create_task('zz')\n"
      "sql(\"UPDATE task SET status = 'STRANGE' WHERE id IN ('a', 'zz')\")\n"
      "tasks.add_notification('t', '{\"type\":\"\",\"id\":\"n\",\"time\":\"2026-01-02T03:04:05.678Z\",'\n"
      "    '\"message\":{\"id\":\"m\",\"default_message\":\"d\",\"args\":[]}}')"));
  EXPECT_EQ(Get("t").Error(), "error: com.orbane.ryn.task.unknown.error()");
  EXPECT_THAT(log_.texts(0), ElementsAre("Failed to convert task info for t"));
  EXPECT_EQ(Get("z").Error(), "");
  log_.Clear();
  // One such record fails the listing, and those behind it are not looked at.
  EXPECT_EQ(List().Error(), "error: com.orbane.ryn.task.unknown.error()");
  EXPECT_THAT(log_.texts(0), ElementsAre("[List] :  Task a has invalid status STRANGE, skipping task",
                                         "Failed to convert task info for t"));
}

TEST(TaskMessagesTest, AreInTheLanguageOfTheCall) {
  auto const templates = [](std::string const& id, boost::string_view locale,
                            std::error_code& ec) -> std::string {
    if (locale == "de" && id == "com.orbane.ryn.task.description") {
      return "Ein Vorgang.";
    }
    if (locale == "de" && id == "com.orbane.ryn.task.progress") {
      return "Bei der Arbeit.";
    }
    ec = Lumo::L10n::L10nErrc::UnknownMessageId;
    return {};
  };
  auto const spec =
      std::make_shared<Lumo::L10n::LocaleSpec>(*Lumo::L10n::LocaleSpecHelpers::GetFixedLocaleSpec());
  spec->language = Lumo::L10n::LanguagePreference("de");
  spec->languages = {spec->language};
  Svc::TaskMessages const messages(Lumo::L10n::RequestLocalizer(
      std::make_shared<Lumo::L10n::Localizer const>(std::vector<std::string>{"en", "de"}, templates,
                                                    Lumo::L10n::LocalizerHelpers::GetDefaultFormatter(),
                                                    Lumo::L10n::LocalizerSpec()),
      spec));
  EXPECT_EQ(messages.description->id, "com.orbane.ryn.task.description");
  EXPECT_EQ(messages.description->defaultMessage, "A lifecycle operation of this host.");
  EXPECT_EQ(messages.description->localized.value_or(""), "Ein Vorgang.");
  EXPECT_EQ(messages.progress->id, "com.orbane.ryn.task.progress");
  EXPECT_EQ(messages.progress->localized.value_or(""), "Bei der Arbeit.");
}

TEST_F(TaskService, ListIsInOrderOfIds) {
  ASSERT_TRUE(OtherProcess::Run("for id in ('c', 'a', 'b'): tasks.create_task(id)"));
  Answer const answer = List();
  auto const* const map = As<ListValue>(answer.output.get());
  ASSERT_EQ(map->size(), 3U);
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(Text(Field(map->Item(i), "key")), std::string(1, static_cast<char>('a' + i)));
    EXPECT_EQ(Text(Field(Field(map->Item(i), "value"), "status")), "PENDING");
  }
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(TaskService, NoDatabaseFile) {
  ASSERT_TRUE(OtherProcess::Run("tasks.create_task('t')"));
  ASSERT_EQ(::unlink(LifeCycle::kTaskDatabasePath), 0);
  EXPECT_EQ(Get("t").Error(), "not_found: com.orbane.ryn.task.notfound.error(t)");
  ASSERT_EQ(::unlink(LifeCycle::kTaskDatabasePath), 0);
  EXPECT_EQ(List().Json(), "{}");
}

TEST_F(TaskService, DamagedDatabase) {
  LifecycleState::Put(LifeCycle::kTaskDatabasePath, "this is no database, not even a short one");
  EXPECT_EQ(Get("t").Error(), "error: com.orbane.ryn.task.parse.error()");
  EXPECT_EQ(List().Error(), "resource_inaccessible: com.orbane.ryn.task.parse.error()");
  EXPECT_THAT(log_.texts(0), ElementsAre(StartsWith("[Get] :  "), StartsWith("[List] :  ")));
}

TEST_F(TaskService, CancelSucceedsAlways) {
  ASSERT_TRUE(OtherProcess::Run("tasks.create_task('t'); tasks.start_task('t')"));
  for (char const* id : {"t", "no-such-task"}) {
    log_.Clear();
    Answer const answer = Cancel(id);
    EXPECT_EQ(answer.Error(), "");
    EXPECT_TRUE(answer.output);
    EXPECT_EQ(log_.lines(),
              (std::vector<CapturedLine>{
                  {2, std::string("[Cancel]: Canceling task ") + id},
                  {2, std::string("TaskSchedular not aborting task that is not running: ") + id}}));
  }
  EXPECT_EQ(Text(Field(Get("t").output.get(), "status")), "RUNNING");
}

/// A task that runs in this process until it is told to stop.
class WaitingTask final : public LifeCycle::Task {
 public:
  void preRun() override {}
  void Run() override {
    std::unique_lock lock(mutex_);
    condition_.wait_for(lock, std::chrono::seconds(20), [this] { return aborted_; });
  }
  void onRunFailure(std::exception const& /*failure*/) override {}
  void postRun() override {}
  bool isAborted() const override { return aborted_; }
  void requestAbort() override {
    std::lock_guard const lock(mutex_);
    aborted_ = true;
    condition_.notify_all();
  }
  void abort() override {}
  std::string name() const override { return "waiting"; }
  std::string id() const override { return "in-process"; }

 private:
  std::mutex mutex_;
  std::condition_variable condition_;
  bool aborted_ = false;
};

TEST_F(TaskService, CancelReachesTheTaskThatTheSchedulerRuns) {
  auto& schedular = LifeCycle::TaskSchedular::GetInstance();
  ASSERT_EQ(schedular.Initialize(), 0);
  auto const task = std::make_shared<WaitingTask>();
  while (schedular.Schedule(task) != 0) {
    std::this_thread::yield();
  }
  EXPECT_EQ(Cancel("in-process").Error(), "");
  schedular.Stop();
  EXPECT_TRUE(task->isAborted());
  EXPECT_THAT(log_.texts(2), Contains("TaskSchedular aborting task: in-process"));
}

}  // namespace
