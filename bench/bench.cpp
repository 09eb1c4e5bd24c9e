// Measures the program's promises about speed. Each figure is a ratio to what it is compared with,
// taken in the same run; script/bench makes the machine that it needs.
#include <benchmark/benchmark.h>
#include <utilsdll.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>

#include "common/text.h"

namespace {

// One stretch of a pass phrase that this process has not used yet, and one byte encrypted with it.
void KeyStretch(benchmark::State& state) {
    static int phrase = 0;
    for (auto _ : state) {
        const WString passPhrase = Utf8ToWide("bench " + std::to_string(phrase++));
        const BYTE plain = 0;
        BYTE cipher[29];
        DWORD size = sizeof cipher;
        if (encrypt_buffer(&plain, 1, cipher, &size, passPhrase.c_str()) != 0) {
            state.SkipWithError("encrypt_buffer failed");
        }
    }
}

// A whole backup of the machine, from the start of the program to its end.
void WholeBackup(benchmark::State& state) {
    const auto file = std::filesystem::temp_directory_path() / "backup.xml";
    const std::string command =
        std::string(SNCONFIG_PROGRAM) + " -q -p 'bench password' -f '" + file.string() + "'";
    for (auto _ : state) {
        std::filesystem::remove(file);
        if (std::system(command.c_str()) != 0 || !std::filesystem::exists(file)) {
            state.SkipWithError("the backup failed");
        }
    }
}

// Prints the usual lines and keeps the best time of each benchmark for the ratios below them.
class BestTimes : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred || run.run_type == Run::RT_Aggregate) continue;
            const double time = run.GetAdjustedRealTime();
            const auto [best, isFirst] = best_.emplace(run.run_name.function_name, time);
            if (!isFirst && time < best->second) best->second = time;
        }
        ConsoleReporter::ReportRuns(runs);
    }

    double Of(const char* name) const {
        const auto found = best_.find(name);
        return found == best_.end() ? 0 : found->second;
    }

  private:
    std::map<std::string, double> best_;
};

struct Promise {
    const char* text;
    const char* measured;
    const char* comparedWith;
    double limit;
};

constexpr Promise kPromises[] = {
    {"whole backup / key stretch", "WholeBackup", "KeyStretch", 1.5},
};

}  // namespace

BENCHMARK(KeyStretch)->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(5);
BENCHMARK(WholeBackup)->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(5);

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    BestTimes times;
    benchmark::RunSpecifiedBenchmarks(&times);
    std::puts("\nratio                                 measured   promised");
    for (const Promise& promise : kPromises) {
        const double base = times.Of(promise.comparedWith);
        if (base <= 0) continue;
        std::printf("%-36s %9.2f   <= %.2f\n", promise.text, times.Of(promise.measured) / base,
                    promise.limit);
    }
    return EXIT_SUCCESS;
}
