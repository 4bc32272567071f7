// What it takes to read a crash report and to write it back, against RapidJSON's DOM parser on the
// same content as the shortest JSON text. Each measure is processor time and includes freeing what
// was made. Takes about a minute.

#include <benchmark/benchmark.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "crashlog/reading/report_reader.h"
#include "crashlog/writing/crash_log_writer.h"
#include "report_generator.h"

namespace tarvo::bench {
namespace {

constexpr std::int64_t kSizes[] = {100'000, 1'000'000, 100'000'000};

using JsonWriter = rapidjson::Writer<rapidjson::StringBuffer>;

void WriteJson(JsonWriter& json, std::string_view text) {
  json.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

/// The shortest JSON text of a value.
void WriteJson(JsonWriter& json, const DataValue& value) {
  if (const auto* dictionary = value.As<DataDictionary>()) {
    json.StartObject();
    for (const auto& [key, member] : *dictionary) {
      json.Key(key.View().data(), static_cast<rapidjson::SizeType>(key.Size()));
      WriteJson(json, member);
    }
    json.EndObject();
  } else if (const auto* array = value.As<DataArray>()) {
    json.StartArray();
    for (const DataValue& element : *array) WriteJson(json, element);
    json.EndArray();
  } else if (const auto* number = value.As<std::uint64_t>()) {
    json.Uint64(*number);
  } else if (const auto* truth = value.As<bool>()) {
    json.Bool(*truth);
  } else {
    WriteJson(json, value.As<String>()->View());
  }
}

/// One report in the three forms that are measured.
struct Sample {
  String report;
  DataDictionary tree;
  std::string json;

  explicit Sample(std::int64_t size) : report(GenerateReport(static_cast<std::size_t>(size))) {
    Result<DataDictionary> parsed = crashhandler::ParseReport(report);
    if (!parsed) {
      std::fprintf(stderr, "%s\n", parsed.GetError().Text().ToStdString().c_str());
      std::exit(1);
    }
    tree = *std::move(parsed);
    rapidjson::StringBuffer buffer;
    JsonWriter writer(buffer);
    WriteJson(writer, DataValue(tree));
    json.assign(buffer.GetString(), buffer.GetSize());
  }

  static const Sample& Of(std::int64_t size) {
    static std::map<std::int64_t, Sample> samples;
    return samples.try_emplace(size, size).first->second;
  }
};

/// Takes what is written and forgets it.
class CountingFile final : public Counted<OutputFile> {
 public:
  Result<void> Write(std::string_view bytes) override {
    buffer_ += bytes;
    if (buffer_.size() > 60'000) buffer_.clear();
    return {};
  }
  Result<void> Commit() override { return {}; }

 private:
  std::string buffer_;
};

void SetBytes(benchmark::State& state, const Sample& sample) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(sample.report.Size()));
}

void Read(benchmark::State& state) {
  const Sample& sample = Sample::Of(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(crashhandler::ParseReport(sample.report));
  SetBytes(state, sample);
}

void ReadRapidJson(benchmark::State& state) {
  const Sample& sample = Sample::Of(state.range(0));
  for (auto _ : state) {
    rapidjson::Document document;
    document.Parse(sample.json.data(), sample.json.size());
    benchmark::DoNotOptimize(document);
  }
  SetBytes(state, sample);
}

void Write(benchmark::State& state) {
  const Sample& sample = Sample::Of(state.range(0));
  const Ref<CountingFile> file = Make<CountingFile>();
  for (auto _ : state)
    if (!crashhandler::WriteCrashLog(sample.tree, *file)) state.SkipWithError("not written");
  SetBytes(state, sample);
}

/// Prints, of the fastest runs, the ratios and the cost of reading a byte.
class RatioReporter final : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration) continue;
      double& fastest = nanoseconds_.try_emplace(run.benchmark_name(), 1e18).first->second;
      fastest = std::min(fastest, run.GetAdjustedCPUTime());
    }
  }

  void Finalize() override {
    std::printf("%12s %17s %14s %13s\n", "report bytes", "read / RapidJSON", "read, ns/byte",
                "write / read");
    for (const std::int64_t size : kSizes) {
      const double read = Time("Read", size);
      std::printf("%12ld %17.2f %14.2f %13.2f\n", static_cast<long>(size),
                  read / Time("RapidJSON", size), read / static_cast<double>(size),
                  Time("Write", size) / read);
    }
  }

 private:
  double Time(const std::string& name, std::int64_t size) {
    return nanoseconds_[name + "/" + std::to_string(size) + "/repeats:3"];
  }
  std::map<std::string, double> nanoseconds_;
};

}  // namespace
}  // namespace tarvo::bench

int main(int argc, char** argv) {
  using namespace tarvo::bench;
  for (const std::int64_t size : kSizes) {
    benchmark::RegisterBenchmark("Read", Read)->Arg(size)->Repetitions(3);
    benchmark::RegisterBenchmark("RapidJSON", ReadRapidJson)->Arg(size)->Repetitions(3);
    benchmark::RegisterBenchmark("Write", Write)->Arg(size)->Repetitions(3);
  }
  benchmark::Initialize(&argc, argv);
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
}
