#include "fake_tool.h"

#include <boost/filesystem.hpp>
#include <fstream>

#include "tests/unit/lifecycle_state.h"

namespace FakeTool {
namespace {

char const* const kTool = "/usr/lib/orbane/lifecycle/bin/stowctl.py";
char const* const kOutput = "/tmp/fake-tool/output";
char const* const kCalls = "/tmp/fake-tool/calls";
char const* const kInterpreter = "/usr/bin/python";
char const* const kHidden = "/usr/bin/python-hidden";

}  // namespace

void Install(std::string const& output, int exitCode) {
  boost::filesystem::remove_all("/tmp/fake-tool");
  LifecycleState::Put(kOutput, output);
  LifecycleState::Put(kTool, std::string("import sys\n") + "with open('" + kCalls + "', 'a') as calls:\n" +
                                 "    print('|'.join(sys.argv[1:]), file=calls)\n" + "with open('" + kOutput +
                                 "', 'rb') as output:\n" + "    sys.stdout.buffer.write(output.read())\n" +
                                 "sys.stdout.flush()\n" + "sys.exit(" + std::to_string(exitCode) + ")\n");
}

void RemoveInterpreter() {
  boost::filesystem::rename(kInterpreter, kHidden);
}
void RestoreInterpreter() {
  boost::filesystem::rename(kHidden, kInterpreter);
}

std::vector<std::string> Calls() {
  std::vector<std::string> calls;
  std::ifstream in(kCalls);
  for (std::string line; std::getline(in, line);) {
    calls.push_back(line);
  }
  return calls;
}

}  // namespace FakeTool
