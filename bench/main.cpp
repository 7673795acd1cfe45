// Runs all benchmarks and prints the ratios to their baselines, which are measured in the same run, taking turns.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <map>
#include <string_view>

#include "bench.h"

namespace {

// Collects the repetitions of every benchmark; shows their aggregates, or the runs if there are no repetitions.
class Collector final : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
        times_[run.run_name.function_name].push_back(run.GetAdjustedRealTime());
      }
      failed_ = failed_ || run.error_occurred;
    }
    std::vector<Run> shown;
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Aggregate || run.repetitions == 1) shown.push_back(run);
    }
    if (!shown.empty()) ConsoleReporter::ReportRuns(shown);
  }

  double Median(const std::string& name) {
    std::vector<double>& times = times_[name];
    if (times.empty()) return 0;
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
  }

  bool Failed() const { return failed_; }

 private:
  std::map<std::string, std::vector<double>> times_;
  bool failed_ = false;
};

void PrintRatiosHead() {
  std::printf("\n%-72s %7s %7s\n", "Ratio to its baseline, medians of one run", "ratio", "at most");
}

void PrintRatios(Collector& collector, const std::vector<bench::Figure>& figures) {
  for (const bench::Figure& figure : figures) {
    const double baseline = collector.Median(figure.baseline);
    const double measured = collector.Median(figure.measured);
    if (baseline <= 0 || measured <= 0) continue;
    std::printf("%-72s %7.2f %7.2f\n", figure.what.c_str(), measured / baseline, figure.limit);
  }
}

}  // namespace

#ifndef KESTOR_PREVIEW
std::vector<bench::Figure> bench::PreviewFigures() {
  return {};
}
#endif

int main(int argc, char** argv) {
  const bool once = argc > 1 && std::string(argv[1]) == "--once";
  const bool aged = argc > 1 && std::string(argv[1]) == "--aged";
  std::vector<std::string> options = {argv[0], "--benchmark_enable_random_interleaving=true"};
  if (once) {
    bench::SetCrowdFiles(1000);
    options.emplace_back("--benchmark_min_time=0.001");
  } else {
    options.emplace_back("--benchmark_repetitions=15");
    options.emplace_back("--benchmark_min_time=0.2");
  }
  for (int i = once || aged ? 2 : 1; i < argc; ++i)
    options.emplace_back(argv[i]);
  std::vector<char*> pointers;
  for (std::string& option : options)
    pointers.push_back(option.data());
  int count = static_cast<int>(pointers.size());
  benchmark::Initialize(&count, pointers.data());
  const bool network = bench::RegisterNetworkBenchmarks();
  if (aged) bench::AgeFileSystem();

  Collector collector;
  // Benchmarks that delete thousands of files come last: the file system creates files slowly for seconds afterwards.
  const bool chosen = std::any_of(argv + 1, argv + argc,
                                  [](std::string_view argument) { return argument.starts_with("--benchmark_filter"); });
  if (chosen) {
    benchmark::RunSpecifiedBenchmarks(&collector);
  } else {
    for (const char* phase : {"-Migration|Renumbering|Network", "Renumbering", "Migration"})
      benchmark::RunSpecifiedBenchmarks(&collector, phase);
    if (network) benchmark::RunSpecifiedBenchmarks(&collector, "Network");
  }
  bench::EndNetwork();
  if (!once) {
    PrintRatiosHead();
    for (const auto figures : {bench::ChannelFigures, bench::ClientFigures, bench::StoreFigures, bench::ListingFigures,
                               bench::LegacyFigures, bench::DocumentFigures, bench::ConversionFigures,
                               bench::SearchFigures, bench::PreviewFigures, bench::NetworkFigures})
      PrintRatios(collector, figures());
  }
  const bool small = chosen || bench::MeasureMemory(once ? 1000 : 1000000);
  bench::EndInstallations();
  return collector.Failed() || !small ? 1 : 0;
}
