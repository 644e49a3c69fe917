// What a log line costs its caller, against formatting the same line into a buffer. Run it where a system log
// listens (tests/sandbox/run) and where none does: in both the caller must not notice.
//
//   bench_logging [--ratios]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

#include "platform/logging/logging.h"

namespace {

constexpr int kRounds = 15;
/// A call's worth of lines, many times; small enough that the queue has room.
constexpr int kLines = 3000;

template <typename Work>
double NanosecondsEach(Work const& work) {
  auto const begin = std::chrono::steady_clock::now();
  for (int i = 0; i < kLines; ++i) {
    work(i);
  }
  std::chrono::duration<double, std::nano> const time = std::chrono::steady_clock::now() - begin;
  return time.count() / kLines;
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  bool const ratios = argc > 1 && std::strcmp(argv[1], "--ratios") == 0;
  Log_AddOutput(Log_NewSyslogOutput("keeld", "syslog", 0, Log_CfgInterface()));
  std::vector<double> formatted;
  std::vector<double> logged;
  std::vector<double> ready;
  std::vector<double> refused;
  for (int round = 0; round < kRounds; ++round) {
    char volatile sink = 0;
    formatted.push_back(NanosecondsEach([&](int i) {
      char text[256];
      std::snprintf(text, sizeof text, "[%s]: Creating task: %d %s", "RunTask", i,
                    "6f1c2d3e-0000-4000-8000-0123456789ab");
      sink = text[i % 20];
    }));
    (void)sink;
    Log_Flush();
    logged.push_back(NanosecondsEach([](int i) {
      CSLogger::Log(2, "[%s]: Creating task: %d %s", "RunTask", i, "6f1c2d3e-0000-4000-8000-0123456789ab");
    }));
    Log_Flush();
    ready.push_back(NanosecondsEach(
        [](int) { CSLogger::LogText(2, "[RunTask]: Creating task: 6f1c2d3e-0000-4000-8000-0123456789ab"); }));
    Log_Flush();
  }
  // More than the queue holds.
  for (int round = 0; round < kRounds; ++round) {
    refused.push_back(NanosecondsEach([](int i) {
                        for (int k = 0; k < 5; ++k) {
                          CSLogger::Log(2, "[%s]: Creating task: %d %s", "RunTask", i,
                                        "6f1c2d3e-0000-4000-8000-0123456789ab");
                        }
                      }) /
                      5);
  }
  if (ratios) {
    std::printf("log_line %.3f\n", Median(logged) / Median(formatted));
  } else {
    std::printf("snprintf of the line: %.0f ns\n", Median(formatted));
    std::printf("CSLogger::Log: %.0f ns, ÷ snprintf %.2f\n", Median(logged),
                Median(logged) / Median(formatted));
    std::printf("CSLogger::LogText: %.0f ns\n", Median(ready));
    std::printf("CSLogger::Log under a flood: %.0f ns\n", Median(refused));
  }
  return 0;
}
