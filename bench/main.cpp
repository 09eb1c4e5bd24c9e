// Measures the program's promises about speed and memory. Each figure is a ratio to what it is
// compared with, taken in the same run; script/bench makes the machine that it needs.
//
//   sn_bench [--margin=FACTOR] [OPTION OF THE BENCHMARK LIBRARY]...
//
// Ends with 1 when a ratio is above its limit - of time, its limit times FACTOR, which is 1 by
// default - or when a figure is missing that no --benchmark_filter left out.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>
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
    bool isTime = true;  // else memory, which other work on the machine does not change
};

constexpr Promise kPromises[] = {
    {"whole backup / key stretch", "WholeBackup", "KeyStretch", 1.5},
    {"mask / memcpy, 256 MiB mapped", "MaskMemory", "CopyMemory", 1.0},
    {"peak memory: protect file / call", "ProtectFilePeak", "ProtectCallPeak", 1.05, false},
    {"peak memory: unprotect file / call", "UnprotectFilePeak", "ProtectCallPeak", 1.05, false},
    {"10,000 settings: protected / plain", "UserSettingsProtected", "UserSettingsPlain", 3.0},
    {"100,000 settings / 10,000", "UserSettingsMany", "UserSettingsProtected", 11.0},
    {"64 MiB decrypted / its steps", "DecryptOnly", "DecryptSteps", 1.5},
    {"peak memory: decryption / file", "DecryptOnlyPeak", "EncryptedFileSize", 2.5, false},
    {"50 MB restored / TinyXML's share", "RestoreLargeFile", "TinyXmlLargeFile", 2.0},
    {"100,000 restored / 10,000", "RestoreManySettings", "RestoreFewSettings", 11.0},
    {"backup verified / key stretch", "VerifyDemoBackup", "KeyStretch", 1.3},
    {"made / backed up and verified", "CreateBackup", "BackUpAndVerify", 1.3},
    {"100,000 verified / 10,000", "VerifyManyValues", "VerifyFewValues", 11.0},
    {"100,000 compared / 10,000", "CompareManyValues", "CompareFewValues", 11.0},
    {"start in FIPS mode / module alone", "FipsStart", "FipsModule", 1.1},
};

// The factor by which the limits are raised; the option is taken out of the arguments.
double TakeMargin(int& argc, char** argv) {
    constexpr std::string_view kOption = "--margin=";
    double margin = 1;
    char** const end = std::remove_if(argv, argv + argc, [&](const char* argument) {
        if (!std::string_view(argument).starts_with(kOption)) return false;
        margin = std::atof(argument + kOption.size());
        return true;
    });
    argc = static_cast<int>(end - argv);
    return margin;
}

// Prints one ratio beside its limit. False when it is above the limit.
bool Report(const Promise& promise, double ratio, double margin) {
    const double limit = promise.isTime ? promise.limit * margin : promise.limit;
    const bool isKept = ratio <= limit;
    std::printf("%-36s %9.2f   <= %.2f%s\n", promise.text, ratio, limit,
                isKept ? "" : "   NOT KEPT");
    return isKept;
}

}  // namespace

int main(int argc, char** argv) {
    const double margin = TakeMargin(argc, argv);
    DataProtectInit();
    benchmark::Initialize(&argc, argv);
    BestFigures figures;
    benchmark::RunSpecifiedBenchmarks(&figures);

    const bool areSome = !benchmark::GetBenchmarkFilter().empty();
    bool isEveryPromiseKept = true;
    std::puts("\nratio                                 measured   promised");
    for (const Promise& promise : kPromises) {
        const double base = figures.Of(promise.comparedWith);
        const double measured = figures.Of(promise.measured);
        if (base > 0 && measured > 0) {
            isEveryPromiseKept &= Report(promise, measured / base, margin);
        } else if (!areSome) {
            std::printf("%-36s   MISSING\n", promise.text);
            isEveryPromiseKept = false;
        }
    }
    return isEveryPromiseKept ? EXIT_SUCCESS : EXIT_FAILURE;
}
