#include "other_process.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "tasks/task_files.h"

namespace OtherProcess {

bool Run(std::string const& statements) {
  std::string const script =
      std::string("import sqlite3, sys\n") + "sys.path.insert(0, '" + KEELD_SOURCE_DIR +
      "/platform/taskdb/python')\n" + "import orbane_taskdb\n" + "PATH = '" + LifeCycle::kTaskDatabasePath +
      "'\n" + "tasks = orbane_taskdb.TaskManager(PATH)\n" + "def sql(statement, *values):\n" +
      "    with sqlite3.connect(PATH) as database:\n" + "        database.execute(statement, values)\n" +
      "    database.close()\n" + statements;
  std::fflush(nullptr);
  pid_t const child = ::fork();
  if (child == 0) {
    ::execl("/usr/bin/python3", "python3", "-B", "-c", script.c_str(), nullptr);
    ::_exit(127);
  }
  int status = -1;
  return child > 0 && ::waitpid(child, &status, 0) == child && status == 0;
}

}  // namespace OtherProcess
