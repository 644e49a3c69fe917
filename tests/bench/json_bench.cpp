// Readers and writers of values against RapidJSON's document and writer, in the same run and on the same
// text.
//
// bench_json [--ratios] [--rounds N]: prints medians; with --ratios only "NAME RATIO" lines, where a ratio is
// peer's time / our time.

#include <malloc.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "runtime/json/serializers.h"

namespace {

using namespace Lumo;

constexpr std::size_t kBytes = 2'400'000;  // the largest request body is 2.5 MB

std::string Repeat(std::function<std::string(int)> const& item) {
  std::string text = "[";
  for (int number = 0; text.size() < kBytes; ++number) {
    if (number > 0)
      text += ',';
    text += item(number);
  }
  return text + "]";
}

// Inventory-like rows, as tests/bench/run posts them.
std::string Rows() {
  return Repeat([](int n) {
    char row[512];
    std::snprintf(row, sizeof row,
                  R"({"name":"component-%06d","version":"%d.%d.%d","size":%d,"enabled":%s,"load":%.16g,)"
                  R"("paks":["pak-%d-a","pak-%d-b"],"display_name":"Component number %d"})",
                  n, n % 9, n % 7, n, n * 4096, n % 2 == 0 ? "true" : "false", n / 7.0 + 0.01, n, n, n);
    return std::string(row);
  });
}

// Wide objects with other names each, as maps are in the direct form.
std::string Maps() {
  return Repeat([](int n) {
    std::string map = "{";
    for (int member = 0; member < 60; ++member) {
      if (member > 0)
        map += ',';
      map += "\"component-" + std::to_string(n * 60 + member) + "\":\"1.0." + std::to_string(member) + '"';
    }
    return map + "}";
  });
}

// Long texts with escapes and letters beyond ASCII.
std::string Texts() {
  return Repeat([](int n) {
    return R"({"id":"com.orbane.ryn.message.)" + std::to_string(n) +
           "\",\"default_message\":\"Die \xC3\x84nderung \\\"" + std::to_string(n) +
           R"(\" wurde ausgef)"
           "\xC3\xBC"
           R"(hrt.\nThe change was made, and a longer text follows here to the end.","args":[]})";
  });
}

std::string Numbers() {
  return Repeat(
      [](int n) { return "[" + std::to_string(n * 7919L) + ",-" + std::to_string(n % 100) + ",0.25]"; });
}

struct Shape {
  char const* name;
  std::string text;
};

// Processor time of this thread in ms, which other work on the machine disturbs least.
double Now() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

double Time(std::function<void()> const& run) {
  double const start = Now();
  run();
  return Now() - start;
}

double Median(std::vector<double> times) {
  auto const middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
  std::nth_element(times.begin(), middle, times.end());
  return *middle;
}

struct Comparison {
  double ours;
  double peers;
  double Ratio() const { return peers / ours; }
};

Comparison Compare(int rounds, std::function<void()> const& ours, std::function<void()> const& peers) {
  std::vector<double> ourTimes;
  std::vector<double> peerTimes;
  for (int round = 0; round < rounds; ++round) {
    ourTimes.push_back(Time(ours));
    peerTimes.push_back(Time(peers));
  }
  return {Median(ourTimes), Median(peerTimes)};
}

[[noreturn]] void Die(char const* what) {
  std::fprintf(stderr, "bench_json: %s\n", what);
  std::exit(1);
}

Data::DataValuePtr Read(std::string const& text) {
  std::shared_ptr<Data::ErrorValue const> error;
  auto value = Protocol::Json::JsonDataDeserializer::Deserialize(text, error);
  if (!value)
    Die(error->ToString().c_str());
  return value;
}

Comparison CompareParse(std::string const& text, int rounds) {
  return Compare(
      rounds, [&text] { Read(text); },
      [&text] {
        rapidjson::Document document;
        if (document.Parse(text.data(), text.size()).HasParseError())
          Die("the peer cannot read the text");
      });
}

Comparison CompareWrite(std::string const& text, int rounds) {
  auto const value = Read(text);
  rapidjson::Document document;
  document.Parse(text.data(), text.size());
  return Compare(
      rounds,
      [&value] {
        std::string out;
        std::shared_ptr<Data::ErrorValue const> error;
        Protocol::Json::JsonDirectDataSerializer<0>::SerializeValue(value, out, error);
        if (out.size() < kBytes / 2)
          Die("too little was written");
      },
      [&document] {
        rapidjson::StringBuffer out;
        rapidjson::Writer<rapidjson::StringBuffer> writer(out);
        document.Accept(writer);
        if (out.GetSize() < kBytes / 2)
          Die("the peer wrote too little");
      });
}

}  // namespace

int main(int argc, char** argv) {
  bool onlyRatios = false;
  int rounds = 41;
  for (int at = 1; at < argc; ++at) {
    if (std::strcmp(argv[at], "--ratios") == 0)
      onlyRatios = true;
    if (std::strcmp(argv[at], "--rounds") == 0 && at + 1 < argc)
      rounds = std::atoi(argv[++at]);
  }
  // Both sides keep their memory between rounds, as a daemon does that answers many calls.
  mallopt(M_MMAP_THRESHOLD, 1 << 30);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);

  Shape const shapes[] = {{"rows", Rows()}, {"maps", Maps()}, {"texts", Texts()}, {"numbers", Numbers()}};
  for (Shape const& shape : shapes) {
    Comparison const parse = CompareParse(shape.text, rounds);
    Comparison const write = CompareWrite(shape.text, rounds);
    if (onlyRatios) {
      std::printf("json_parse %.3f\njson_write %.3f\n", parse.Ratio(), write.Ratio());
      break;
    }
    std::printf(
        "%-8s parse %6.2f ms, peer %6.2f ms, ratio %.2f   write %6.2f ms, peer %6.2f ms, ratio %.2f\n",
        shape.name, parse.ours, parse.peers, parse.Ratio(), write.ours, write.peers, write.Ratio());
  }
  return 0;
}
