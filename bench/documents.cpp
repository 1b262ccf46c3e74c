// Reading documents: ours beside three libraries. Every competitor parses to a document that owns its contents, checks
// the encoding, and frees the document again; `state` is what a launch does, parse and validate.
//
// Names: WHAT/DOCUMENT for the two real documents, worst/CASE for the largest ones, series/KIND/BYTES for growth.

#include <benchmark/benchmark.h>
#include <rapidjson/document.h>

#include <boost/json.hpp>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>

#include "json/parser.h"
#include "state/boot_state.h"
#include "tests/json/worst_cases.h"

namespace {

using namespace launcher_stub;

void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "%s\n", what);
  std::exit(1);
}

std::string slotName(std::size_t number) {
  std::string name(64, "0123456789abcdef"[number % 16]);
  name[0] = "0123456789abcdef"[number / 16 % 16];
  return name;
}

BootState plainState() {
  BootState state;
  state.generation = 42;
  state.active = slotName(1);
  state.previous = slotName(2);
  state.lastRequestId = "request-0123456789abcdef";
  return state;
}

BootState fullState() {
  BootState state = plainState();
  for (std::size_t number = 0; number < maxRejectedSlots; ++number) state.rejected.push_back(slotName(number + 16));
  return state;
}

using Parse = bool (*)(const std::string&);

bool parseOurs(const std::string& document) {
  JsonValue value;
  std::string error;
  const bool parsed = parseJsonDocument(document.data(), document.size(), value, error);
  benchmark::DoNotOptimize(&value);
  return parsed;
}

bool readOurState(const std::string& document) {
  BootState state;
  std::string error;
  const bool read = readBootState(document, state, error);
  benchmark::DoNotOptimize(&state);
  return read;
}

bool parseRapidJson(const std::string& text) {
  rapidjson::Document document;
  document.Parse<rapidjson::kParseValidateEncodingFlag>(text.data(), text.size());
  benchmark::DoNotOptimize(&document);
  return !document.HasParseError();
}

bool parseNlohmann(const std::string& text) {
  const auto document = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
  benchmark::DoNotOptimize(&document);
  return !document.is_discarded();
}

bool parseBoost(const std::string& text) {
  boost::system::error_code error;
  const boost::json::value document = boost::json::parse(text, error);
  benchmark::DoNotOptimize(&document);
  return !error;
}

// The same with the memory that its manual advises for documents that are read and thrown away.
bool parseBoostMonotonic(const std::string& text) {
  unsigned char buffer[4'096];
  boost::json::monotonic_resource memory(buffer, sizeof buffer);
  boost::system::error_code error;
  const boost::json::value document = boost::json::parse(text, error, &memory);
  benchmark::DoNotOptimize(&document);
  return !error;
}

void add(const std::string& name, Parse parse, std::string document, bool accepted = true) {
  require(parse(document) == accepted, ("not read for what it is: " + name).c_str());
  benchmark::RegisterBenchmark(name.c_str(), [parse, document](benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(parse(document));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(document.size()));
    state.counters["document"] = static_cast<double>(document.size());
  });
}

void addForAll(const std::string& document, const std::string& text) {
  const std::pair<const char*, Parse> readers[] = {
      {"ours", parseOurs},         {"state", readOurState},    {"RapidJSON", parseRapidJson},
      {"nlohmann", parseNlohmann}, {"Boost.JSON", parseBoost}, {"Boost.JSON, monotonic", parseBoostMonotonic}};
  for (const auto& [name, parse] : readers) add(std::string(name) + "/" + document, parse, text);
}

// The kinds that are slowest to read, at a size: pieces with commas between them.
struct Kind {
  const char* name;
  char open;
  char close;
  std::string (*piece)(std::size_t number);
};

std::string documentOf(const Kind& kind, std::size_t bytes) {
  std::string text(1, kind.open);
  for (std::size_t number = 0;; ++number) {
    const std::string next = (number == 0 ? "" : ",") + kind.piece(number);
    if (text.size() + next.size() + 1 > bytes) break;
    text += next;
  }
  text += kind.close;
  text.resize(bytes, ' ');
  return text;
}

void addSeries() {
  const Kind kinds[] = {
      {"scattered keys", '{', '}', [](std::size_t n) { return '"' + digits(scattered(n, 13), 4) + "\":0"; }},
      {"short keys", '{', '}', [](std::size_t n) { return '"' + shortKey(n) + "\":0"; }},
      {"alike keys", '{', '}',
       [](std::size_t n) { return '"' + std::string(40, 'p') + digits(scattered(n, 11), 4) + "\":0"; }},
      {"small objects", '[', ']', [](std::size_t) { return std::string("{\"a\":0,\"\":0}"); }},
      {"surrogate pairs", '[', ']', [](std::size_t) { return std::string("\"\\ud83d\\ude80\""); }},
      {"numbers", '[', ']', [](std::size_t) { return std::string("0"); }},
  };
  for (const Kind& kind : kinds) {
    for (std::size_t bytes = 1'024; bytes <= kMaxRecordBytes; bytes *= 2) {
      add("series/" + std::string(kind.name) + "/" + std::to_string(bytes), parseOurs, documentOf(kind, bytes));
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  addForAll("plain state", writeBootState(plainState()));
  addForAll("64 rejected", writeBootState(fullState()));
  for (const WorstCase& c : worstCases()) {
    add(std::string("worst/") + c.name, parseOurs, c.document, c.outcome == std::string_view("accepted"));
  }
  addSeries();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
