// A main for Google Benchmark programs whose counters are ratios and nanoseconds per byte. The
// stock console table prints counters in engineering notation ("950m") and inverted rates with
// a seconds suffix ("101.4s"); this one prints every counter as a plain number, so "0.95" reads
// as a ratio and "101.400" as nanoseconds. --benchmark_format=json or csv and --benchmark_out
// are served by the stock reporters as usual.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>

namespace {

class PlainCountersReporter : public benchmark::ConsoleReporter {
public:
    PlainCountersReporter()
        : benchmark::ConsoleReporter(OO_Tabular) {}

protected:
    void PrintHeader(const Run& run) override {
        std::string line = "Benchmark";
        line.resize(std::max<size_t>(name_field_width_, line.size()), ' ');
        line += "          Time           CPU  Iterations";
        for (const auto& [name, counter] : run.counters)
            line += ' ' + std::string(width(name) - name.size(), ' ') + name;
        std::printf("%s\n%s\n", line.c_str(), std::string(line.size(), '-').c_str());
    }

    void PrintRunData(const Run& run) override {
        std::printf("%-*s", int(std::max<size_t>(name_field_width_, 9)), run.benchmark_name().c_str());
        if (run.error_occurred) {
            std::printf(" ERROR: %s\n", run.error_message.c_str());
            return;
        }
        if (run.run_type == Run::RT_Aggregate && run.aggregate_unit == benchmark::kPercentage) {
            // The coefficient of variation: every column is a fraction of its mean.
            std::printf(" %12.2f%% %12.2f%% %11s", run.real_accumulated_time * 100,
                        run.cpu_accumulated_time * 100, "");
            for (const auto& [name, counter] : run.counters)
                std::printf(" %*.2f%%", int(width(name)) - 1, counter.value * 100);
        } else {
            const char* unit = benchmark::GetTimeUnitString(run.time_unit);
            std::printf(" %10.3f %-2s %10.3f %-2s %11lld", run.GetAdjustedRealTime(), unit,
                        run.GetAdjustedCPUTime(), unit, static_cast<long long>(run.iterations));
            for (const auto& [name, counter] : run.counters)
                std::printf(" %*.3f", int(width(name)), counter.value);
        }
        std::printf("\n");
    }

private:
    static size_t width(const std::string& name) { return std::max<size_t>(name.size(), 9); }
};

bool consoleFormat(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument(argv[i]);
        if (argument.starts_with("--benchmark_format=") && argument != "--benchmark_format=console")
            return false;
    }
    return true;
}

} // namespace

int main(int argc, char** argv) {
    const bool console = consoleFormat(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    PlainCountersReporter reporter;
    benchmark::RunSpecifiedBenchmarks(console ? &reporter : nullptr);
    benchmark::Shutdown();
    return 0;
}
