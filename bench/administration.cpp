// Backups that are made, verified and compared by snbackup, beside what that has to cost.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>

#include "bench/program.h"

namespace {

constexpr int kFew = 10'000;
constexpr int kMany = 100'000;

std::string TemporaryPath(const char* name) {
    return std::filesystem::temp_directory_path() / name;
}

std::string PasswordFile() {
    const std::string path = TemporaryPath("password.txt");
    std::ofstream(path) << "bench password\n";
    return path;
}

bool BackUp(const std::string& file) {
    return RunTool({"-q", "-p", "bench password", "-f", file}).succeeded;
}
bool Administer(std::vector<std::string> words) {
    words.insert(words.end(), {"--password-file", PasswordFile()});
    return RunProgram("snbackup", words).succeeded;
}

// A backup with that many plain values in keys of a hundred.
std::string MakeBackup(int values) {
    const std::string path = TemporaryPath("values.xml");
    std::ofstream file(path, std::ios::binary);
    file << "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<sentrel_configuration>\n    <av>\n";
    for (int i = 0; i < values; ++i) {
        if (i % 100 == 0) file << "        <key name=\"Key" << i / 100 << "\">\n";
        file << "            <value name=\"value " << i
             << "\" type=\"1\" data=\"a plain text\" />\n";
        if (i % 100 == 99) file << "        </key>\n";
    }
    file << "    </av>\n</sentrel_configuration>\n";
    return path;
}

void VerifyDemoBackup(benchmark::State& state) {
    const std::string file = TemporaryPath("demo.xml");
    bool succeeded = BackUp(file);
    for (auto _ : state) succeeded = succeeded && Administer({"verify", file});
    if (!succeeded) state.SkipWithError("the backup was not verified");
}

void CreateBackup(benchmark::State& state) {
    for (auto _ : state) {
        if (!Administer({"create", TemporaryPath("created.xml")})) {
            state.SkipWithError("no backup was made");
        }
    }
}
void BackUpAndVerify(benchmark::State& state) {
    const std::string file = TemporaryPath("made.xml");
    for (auto _ : state) {
        if (!BackUp(file) || !Administer({"verify", file})) {
            state.SkipWithError("no backup was made");
        }
    }
}

void VerifyValues(benchmark::State& state) {
    const std::string file = MakeBackup(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        if (!Administer({"verify", file})) state.SkipWithError("the backup was not verified");
    }
}
void CompareValues(benchmark::State& state) {
    const std::string file = MakeBackup(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        if (!Administer({"diff", file, file})) state.SkipWithError("the backup was not compared");
    }
}
void InMilliseconds(benchmark::internal::Benchmark* run) {
    run->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(3);
}
BENCHMARK(VerifyDemoBackup)->Apply(InMilliseconds);
BENCHMARK(CreateBackup)->Apply(InMilliseconds);
BENCHMARK(BackUpAndVerify)->Apply(InMilliseconds);
BENCHMARK(VerifyValues)->Name("VerifyFewValues")->Apply(InMilliseconds)->Arg(kFew);
BENCHMARK(VerifyValues)->Name("VerifyManyValues")->Apply(InMilliseconds)->Arg(kMany);
BENCHMARK(CompareValues)->Name("CompareFewValues")->Apply(InMilliseconds)->Arg(kFew);
BENCHMARK(CompareValues)->Name("CompareManyValues")->Apply(InMilliseconds)->Arg(kMany);

}  // namespace
