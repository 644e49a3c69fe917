#include "tasks/task_schedular.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "held_thread.h"
#include "platform/logging/test_only_log_capture.h"
#include "scripted_task.h"

/// Read by the thread sanitizer: a worker that hangs is left alone on purpose.
extern "C" char const* __tsan_default_options();
extern "C" char const* __tsan_default_options() {
  return "report_thread_leaks=0";
}

namespace {

using LifeCycle::TaskSchedularImpl;
using Orbane::CapturedLine;
using testing::Contains;
using testing::ElementsAre;
using testing::IsSupersetOf;
using testing::Not;

static_assert(TaskSchedularImpl::kAbortGrace == std::chrono::seconds(5));

/// Lets other threads run until `condition` holds; false after 20 seconds.
template <typename Condition>
bool Await(Condition condition) {
  auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::yield();
  }
  return true;
}

class TaskSchedularTest : public testing::Test {
 protected:
  bool AwaitLine(int priority, std::string const& text) {
    return Await([&] {
      auto const lines = log_.lines();
      return std::find(lines.begin(), lines.end(), CapturedLine{priority, text}) != lines.end();
    });
  }
  void Start() {
    ASSERT_EQ(schedular_.Initialize(), 0);
    ASSERT_TRUE(AwaitLine(2, "TaskSchedular started."));
  }
  /// Starts, and gives the scheduler's own thread, which then waits for something to do.
  pid_t StartAndFindThread() {
    std::set<pid_t> const before = ThreadIds();
    Start();
    EXPECT_EQ(schedular_.AbortTask("none"), 0);  // the mutex is to be had: the thread has come to its wait
    std::set<pid_t> after = ThreadIds();
    for (pid_t const id : before) {
      after.erase(id);
    }
    EXPECT_EQ(after.size(), 1U);
    return after.empty() ? 0 : *after.begin();
  }
  /// Schedules a task that stays in one of its phases until `go_` is open, as a request to abort makes it;
  /// returns once it is there.
  std::shared_ptr<ScriptedTask> ScheduleUntilGo(std::string const& id,
                                                std::function<void()> ScriptedTask::*phase) {
    auto task = std::make_shared<ScriptedTask>(id);
    task->inRequestAbort = [this] { go_.Open(); };
    task.get()->*phase = [this] {
      inside_.Open();
      EXPECT_TRUE(go_.Wait());
    };
    EXPECT_EQ(schedular_.Schedule(task), 0);
    EXPECT_TRUE(inside_.Wait());
    return task;
  }

  Orbane::TestOnlyLogCapture log_;
  Latch inside_;
  Latch go_;
  TaskSchedularImpl schedular_;
};

TEST_F(TaskSchedularTest, RunsATaskThroughItsPhases) {
  Start();
  Latch destroyed;
  auto task = std::make_shared<ScriptedTask>("a");
  task->destroyed = &destroyed;
  std::vector<std::string> calls;
  task->inPostRun = [&calls, raw = task.get()] { calls = raw->Calls(); };
  EXPECT_EQ(schedular_.Schedule(task), 0);
  task.reset();
  ASSERT_TRUE(destroyed.Wait());
  schedular_.Stop();
  EXPECT_THAT(calls, ElementsAre("preRun", "Run", "postRun"));
  EXPECT_EQ(log_.lines(), (std::vector<CapturedLine>{{2, "TaskSchedular started."},
                                                     {2, "TaskSchedular received new task: task-a"},
                                                     {2, "Task dispatched: task-a"},
                                                     {2, "Task completed: task-a"},
                                                     {2, "TaskSchedular abort requested."},
                                                     {2, "TaskSchedular stopped."}}));
}

TEST_F(TaskSchedularTest, ScheduleBeforeInitializeIsRefused) {
  auto const task = std::make_shared<ScriptedTask>("early");
  EXPECT_EQ(schedular_.Schedule(task), 2);
  EXPECT_THAT(task->Calls(), ElementsAre());
  EXPECT_EQ(log_.lines(),
            (std::vector<CapturedLine>{{2, "TaskSchedular received new task: task-early"},
                                       {0, "TaskSchedular in state=0, stopped=0, doesn't accept requests"}}));
}

TEST_F(TaskSchedularTest, SecondTaskIsRefusedUntilTheFirstIsCollected) {
  Start();
  ScheduleUntilGo("1", &ScriptedTask::inRun);
  auto const second = std::make_shared<ScriptedTask>("2");
  log_.Clear();
  EXPECT_EQ(schedular_.Schedule(second), 2);
  EXPECT_EQ(log_.lines(),
            (std::vector<CapturedLine>{{2, "TaskSchedular received new task: task-2"},
                                       {0, "TaskSchedular in state=3, stopped=0, doesn't accept requests"}}));
  go_.Open();
  ASSERT_TRUE(AwaitLine(2, "Task completed: task-1"));
  ASSERT_TRUE(Await([&] { return schedular_.Schedule(second) == 0; }));
  ASSERT_TRUE(AwaitLine(2, "Task completed: task-2"));
  schedular_.Stop();
  EXPECT_THAT(second->Calls(), ElementsAre("preRun", "Run", "postRun"));
}

TEST_F(TaskSchedularTest, AbortTaskOfAnotherId) {
  Start();
  auto const task = ScheduleUntilGo("x", &ScriptedTask::inRun);
  EXPECT_EQ(schedular_.AbortTask("y"), 0);
  go_.Open();
  ASSERT_TRUE(AwaitLine(2, "Task completed: task-x"));
  EXPECT_EQ(schedular_.AbortTask("x"), 0);  // collected
  schedular_.Stop();
  EXPECT_THAT(task->Calls(), Not(Contains("requestAbort")));
  EXPECT_THAT(log_.texts(2), IsSupersetOf({"TaskSchedular not aborting task that is not running: y",
                                           "TaskSchedular not aborting task that is not running: x"}));
}

TEST_F(TaskSchedularTest, AbortTaskReachesRunAndPostRunStillRuns) {
  Start();
  auto const task = ScheduleUntilGo("x", &ScriptedTask::inRun);
  EXPECT_EQ(schedular_.AbortTask("x"), 1);
  ASSERT_TRUE(AwaitLine(2, "Task completed: task-x"));
  schedular_.Stop();
  EXPECT_THAT(task->Calls(), ElementsAre("preRun", "Run", "requestAbort", "postRun"));
  EXPECT_THAT(log_.texts(2), Contains("TaskSchedular aborting task: x"));
}

TEST_F(TaskSchedularTest, AbortTaskOfAnAcceptedTask) {
  HeldThread thread(StartAndFindThread());
  auto const task = std::make_shared<ScriptedTask>("x");
  ASSERT_EQ(schedular_.Schedule(task), 0);
  EXPECT_EQ(schedular_.Schedule(std::make_shared<ScriptedTask>("other")), 2);
  EXPECT_THAT(log_.texts(0), ElementsAre("TaskSchedular in state=2, stopped=0, doesn't accept requests"));
  EXPECT_EQ(schedular_.AbortTask("x"), 1);
  EXPECT_THAT(task->Calls(), ElementsAre("requestAbort"));
  thread.LetGo();
  ASSERT_TRUE(AwaitLine(2, "Task completed: task-x"));
  schedular_.Stop();
  EXPECT_THAT(task->Calls(), ElementsAre("requestAbort", "preRun", "Run", "postRun"));
}

TEST_F(TaskSchedularTest, FailuresStillGetPostRun) {
  struct Case {
    char const* id;
    bool inPreRun;
    std::vector<std::string> calls;
  };
  Start();
  for (Case const& c : {Case{"pre", true, {"preRun", "onRunFailure broken", "postRun"}},
                        Case{"run", false, {"preRun", "Run", "onRunFailure broken", "postRun"}}}) {
    auto const task = std::make_shared<ScriptedTask>(c.id);
    (c.inPreRun ? task->inPreRun : task->inRun) = [] { throw std::runtime_error("broken"); };
    ASSERT_TRUE(Await([&] { return schedular_.Schedule(task) == 0; }));
    ASSERT_TRUE(AwaitLine(2, "Task completed: " + task->name()));
    EXPECT_EQ(task->Calls(), c.calls) << c.id;
    EXPECT_THAT(log_.texts(0), Contains("Task: " + task->name() + " failed to run: broken"));
  }
  schedular_.Stop();
}

TEST_F(TaskSchedularTest, FailedPostRunIsLoggedAndTheTaskEnds) {
  Start();
  auto const task = std::make_shared<ScriptedTask>("p");
  task->inPostRun = [] { throw std::runtime_error("no space"); };
  ASSERT_EQ(schedular_.Schedule(task), 0);
  ASSERT_TRUE(AwaitLine(2, "Task completed: task-p"));
  EXPECT_THAT(log_.texts(0), ElementsAre("PostRun script failed to run: no space"));
  schedular_.Stop();
}

TEST_F(TaskSchedularTest, OtherExceptionsEndTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        auto* const schedular = new TaskSchedularImpl;
        schedular->Initialize();
        auto const task = std::make_shared<ScriptedTask>("int");
        task->inRun = [] { throw 1; };
        Await([&] { return schedular->Schedule(task) == 0; });
        Await([] { return false; });
      },
      "terminate called after throwing an instance of 'int'");
}

TEST_F(TaskSchedularTest, StopWhileATaskWaitsForDispatch) {
  HeldThread thread(StartAndFindThread());
  auto const task = std::make_shared<ScriptedTask>("s");
  ASSERT_EQ(schedular_.Schedule(task), 0);
  std::thread stopping([this] { schedular_.Stop(); });
  EXPECT_TRUE(Await([&] {
    EXPECT_EQ(schedular_.Schedule(task), 2);
    return log_.Contains("TaskSchedular in state=2, stopped=1, doesn't accept requests");
  }));
  thread.LetGo();
  stopping.join();
  EXPECT_THAT(task->Calls(), ElementsAre("abort"));
  auto const texts = log_.texts(2);
  EXPECT_EQ(texts.back(), "Skip task=task-s in state=2");
  EXPECT_EQ(texts.at(texts.size() - 2), "TaskSchedular stopped.");
}

TEST_F(TaskSchedularTest, StopAwaitsATaskThatHeedsTheAbort) {
  Start();
  auto const task = ScheduleUntilGo("h", &ScriptedTask::inRun);
  schedular_.Stop();
  // The worker sees the stop flag behind Run and ends the task as aborted, without postRun.
  EXPECT_THAT(task->Calls(), ElementsAre("preRun", "Run", "requestAbort", "abort"));
  EXPECT_THAT(log_.texts(0), ElementsAre("Worker aborting task after Run(): task-h"));
  EXPECT_THAT(log_.texts(2), ElementsAre("TaskSchedular started.", "TaskSchedular received new task: task-h",
                                         "Task dispatched: task-h", "TaskSchedular abort requested.",
                                         "TaskSchedular stopped.", "Abort task requested: task-h",
                                         "Task completed: task-h"));
  EXPECT_EQ(task.use_count(), 1);
}

TEST_F(TaskSchedularTest, StopDuringPreRunSkipsRun) {
  Start();
  auto const task = ScheduleUntilGo("b", &ScriptedTask::inPreRun);
  schedular_.Stop();
  EXPECT_THAT(task->Calls(), ElementsAre("preRun", "requestAbort", "abort"));
  EXPECT_THAT(log_.texts(0), ElementsAre("Worker aborting task before Run(): task-b"));
}

TEST_F(TaskSchedularTest, StopDuringPostRunLetsTheTaskEnd) {
  Start();
  auto const task = ScheduleUntilGo("e", &ScriptedTask::inPostRun);
  schedular_.Stop();
  EXPECT_THAT(task->Calls(), ElementsAre("preRun", "Run", "postRun", "requestAbort"));
  EXPECT_THAT(log_.texts(0), ElementsAre());
  EXPECT_EQ(log_.lines().back(), (CapturedLine{2, "Task completed: task-e"}));
}

TEST_F(TaskSchedularTest, StopGivesUpOnATaskThatHangs) {
  // Never destroyed, like the process's own: its worker is still inside Run.
  static TaskSchedularImpl* schedular = nullptr;
  static Latch* running = nullptr;
  static Latch* go = nullptr;
  schedular = new TaskSchedularImpl(std::chrono::milliseconds(30));
  running = new Latch;
  go = new Latch;
  ASSERT_EQ(schedular->Initialize(), 0);
  ASSERT_TRUE(AwaitLine(2, "TaskSchedular started."));
  auto const task = std::make_shared<ScriptedTask>("z");
  task->inRun = [] {
    running->Open();
    EXPECT_TRUE(go->Wait());
  };
  ASSERT_EQ(schedular->Schedule(task), 0);
  ASSERT_TRUE(running->Wait());
  auto const before = std::chrono::steady_clock::now();
  schedular->Stop();
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(30));
  EXPECT_THAT(task->Calls(), ElementsAre("preRun", "Run", "requestAbort", "abort"));
  EXPECT_THAT(log_.texts(0),
              ElementsAre("Task did not respond to abort request: task-z", "Task aborted: task-z"));
  EXPECT_GT(task.use_count(), 1);  // stays in the slot
  go->Open();                      // the late worker ends by itself
  ASSERT_TRUE(AwaitLine(0, "Worker aborting task after Run(): task-z"));
}

TEST_F(TaskSchedularTest, StopIsFinal) {
  Start();
  schedular_.Stop();
  log_.Clear();
  EXPECT_EQ(schedular_.Schedule(std::make_shared<ScriptedTask>("l")), 2);
  EXPECT_THAT(log_.texts(0), ElementsAre("TaskSchedular in state=1, stopped=1, doesn't accept requests"));
  EXPECT_EQ(schedular_.Initialize(), 1);  // the thread is not started again
  EXPECT_THAT(log_.texts(0), Contains("TaskSchedular failed to initialize."));
}

TEST_F(TaskSchedularTest, StopBeforeInitialize) {
  schedular_.Stop();
  EXPECT_EQ(schedular_.Initialize(), 0);  // a thread that ends at once
  schedular_.Stop();
  EXPECT_EQ(log_.lines().back(), (CapturedLine{2, "TaskSchedular stopped."}));
}

TEST_F(TaskSchedularTest, StopRightAfterInitializeNeverHangs) {
  for (int round = 0; round < 300; ++round) {
    TaskSchedularImpl schedular;
    ASSERT_EQ(schedular.Initialize(), 0);
    schedular.Stop();
  }
}

TEST_F(TaskSchedularTest, InitializeTwiceStartsOneThread) {
  Start();
  EXPECT_EQ(schedular_.Initialize(), 0);
  schedular_.Stop();
  EXPECT_EQ(log_.texts(2),
            (std::vector<std::string>{"TaskSchedular started.", "TaskSchedular abort requested.",
                                      "TaskSchedular stopped."}));
}

/// No thread can be made for as long as it lives: none finds room for its stack.
class NoThreads {
 public:
  NoThreads() {
    EXPECT_EQ(::pthread_getattr_default_np(&usual_), 0);
    pthread_attr_t greedy;
    EXPECT_EQ(::pthread_attr_init(&greedy), 0);
    EXPECT_EQ(::pthread_attr_setstacksize(&greedy, std::size_t{1} << 47), 0);
    EXPECT_EQ(::pthread_setattr_default_np(&greedy), 0);
    ::pthread_attr_destroy(&greedy);
  }
  ~NoThreads() {
    EXPECT_EQ(::pthread_setattr_default_np(&usual_), 0);
    ::pthread_attr_destroy(&usual_);
  }
  NoThreads(NoThreads const&) = delete;
  NoThreads& operator=(NoThreads const&) = delete;

 private:
  pthread_attr_t usual_;
};

TEST_F(TaskSchedularTest, InitializeWithoutAThread) {
  {
    NoThreads const none;
    EXPECT_EQ(schedular_.Initialize(), 1);
  }
  EXPECT_EQ(schedular_.Initialize(), 1);  // tried once only
  std::string const failure = "TaskSchedular failed to initialize.";
  EXPECT_EQ(log_.lines(), (std::vector<CapturedLine>{{0, failure}, {0, failure}}));
  EXPECT_EQ(schedular_.Schedule(std::make_shared<ScriptedTask>("n")), 2);
  schedular_.Stop();
}

TEST_F(TaskSchedularTest, TaskThatGetsNoThreadIsAborted) {
  Start();
  auto const task = std::make_shared<ScriptedTask>("n");
  {
    NoThreads const none;
    ASSERT_TRUE(Await([&] { return schedular_.Schedule(task) == 0; }));
    ASSERT_TRUE(AwaitLine(0, "Task: task-n failed to run: Resource temporarily unavailable"));
    ASSERT_TRUE(Await([&] { return schedular_.AbortTask("n") == 0; }));
  }
  EXPECT_EQ(task->Calls().front(), "abort");
  auto const next = std::make_shared<ScriptedTask>("m");
  EXPECT_EQ(schedular_.Schedule(next), 0);
  ASSERT_TRUE(AwaitLine(2, "Task completed: task-m"));
  schedular_.Stop();
}

TEST_F(TaskSchedularTest, ManyTasksOneAfterTheOther) {
  Start();
  std::atomic<int> inside{0};
  std::atomic<int> ran{0};
  for (int i = 0; i < 300; ++i) {
    auto const task = std::make_shared<ScriptedTask>(std::to_string(i));
    task->inRun = [&] {
      EXPECT_EQ(inside.fetch_add(1), 0);
      ++ran;
      inside.fetch_sub(1);
    };
    ASSERT_TRUE(Await([&] { return schedular_.Schedule(task) == 0; })) << i;
  }
  ASSERT_TRUE(AwaitLine(2, "Task completed: task-299"));
  schedular_.Stop();
  EXPECT_EQ(ran, 300);
}

TEST(TaskSchedularInstance, IsOne) {
  EXPECT_EQ(&LifeCycle::TaskSchedular::GetInstance(), &LifeCycle::TaskSchedular::GetInstance());
}

}  // namespace
