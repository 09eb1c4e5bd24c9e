// Measures the program's promises about speed and memory. Each figure is a ratio to what it is
// compared with, taken in the same run; script/bench makes the machine that it needs.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "protect/data_protect.h"

namespace {

// Prints the usual lines and keeps the best figure of each benchmark for the ratios below them.
class BestFigures : public benchmark::ConsoleReporter {
  public:
    BestFigures() : ConsoleReporter(OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.error_occurred || run.run_type == Run::RT_Aggregate) continue;
            const double figure = run.real_accumulated_time / static_cast<double>(run.iterations);
            const auto [best, isFirst] = best_.emplace(run.run_name.function_name, figure);
            if (!isFirst && figure < best->second) best->second = figure;
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
    {"mask / memcpy, 256 MiB mapped", "MaskMemory", "CopyMemory", 1.0},
    {"peak memory: protect file / call", "ProtectFilePeak", "ProtectCallPeak", 1.05},
    {"peak memory: unprotect file / call", "UnprotectFilePeak", "ProtectCallPeak", 1.05},
    {"10,000 settings: protected / plain", "UserSettingsProtected", "UserSettingsPlain", 3.0},
    {"100,000 settings / 10,000", "UserSettingsMany", "UserSettingsProtected", 11.0},
    {"64 MiB decrypted / its steps", "DecryptOnly", "DecryptSteps", 1.5},
    {"peak memory: decryption / file", "DecryptOnlyPeak", "EncryptedFileSize", 2.5},
    {"50 MB restored / TinyXML's share", "RestoreLargeFile", "TinyXmlLargeFile", 2.0},
    {"100,000 restored / 10,000", "RestoreManySettings", "RestoreFewSettings", 11.0},
    {"start in FIPS mode / module alone", "FipsStart", "FipsModule", 1.1},
};

}  // namespace

int main(int argc, char** argv) {
    DataProtectInit();
    benchmark::Initialize(&argc, argv);
    BestFigures figures;
    benchmark::RunSpecifiedBenchmarks(&figures);
    std::puts("\nratio                                 measured   promised");
    for (const Promise& promise : kPromises) {
        const double base = figures.Of(promise.comparedWith);
        const double measured = figures.Of(promise.measured);
        if (base <= 0 || measured <= 0) continue;
        std::printf("%-36s %9.2f   <= %.2f\n", promise.text, measured / base, promise.limit);
    }
    return EXIT_SUCCESS;
}
