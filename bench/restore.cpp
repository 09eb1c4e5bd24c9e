// A whole restore of a large file, beside TinyXML's own loading and saving of it, and of many
// settings beside few.
#include <benchmark/benchmark.h>
#include <product_registry.h>
#include <tinyxml.h>
#include <utilsdll.h>

#include <filesystem>
#include <fstream>

#include "bench/program.h"
#include "common/format.h"
#include "common/handles.h"
#include "registry/registry.h"

namespace {

constexpr int kComments = 100'000;
constexpr std::size_t kLargeFileSize = 50'000'000;
// What a restore of one module does with the file: it is loaded and saved without its comments, and
// loaded by the plug-in and for the user's settings.
constexpr int kLoads = 3;
constexpr int kSaves = 1;

std::string TemporaryPath(const char* name) {
    return std::filesystem::temp_directory_path() / name;
}

// A configuration file of 50 MB with a comment in front of each of its 100,000 elements.
void MakeLargeFile(const std::string& path) {
    const std::string text(kLargeFileSize / kComments - 80, 'x');
    std::ofstream file(path, std::ios::binary);
    file << "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<sentrel_configuration>\n    <unread>\n";
    for (int i = 0; i < kComments; ++i) {
        file << "        <!-- comment " << i << " -->\n        <setting>" << text << "</setting>\n";
    }
    file << "    </unread>\n</sentrel_configuration>\n";
}

void RestoreLargeFile(benchmark::State& state) {
    const std::string file = TemporaryPath("large.xml");
    MakeLargeFile(file);
    for (auto _ : state) {
        if (!RunTool({"-q", "-o", "import", "-m", "av", "-f", file}).succeeded) {
            state.SkipWithError("the restore failed");
        }
    }
    std::filesystem::remove(file);
}
BENCHMARK(RestoreLargeFile)->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(3);

void TinyXmlLargeFile(benchmark::State& state) {
    const std::string file = TemporaryPath("large.xml");
    const std::string saved = TemporaryPath("saved.xml");
    MakeLargeFile(file);
    for (auto _ : state) {
        for (int i = 0; i < kLoads; ++i) {
            TiXmlDocument document;
            if (!document.LoadFile(file)) state.SkipWithError("the file was not loaded");
            if (i < kSaves) document.SaveFile(saved);
        }
    }
    std::filesystem::remove(file);
    std::filesystem::remove(saved);
}
BENCHMARK(TinyXmlLargeFile)->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(3);

// Restores a backup of one module with that many settings.
void RestoreSettings(benchmark::State& state) {
    const WString keyName = FormatWide(TEXT("%s\\SA_AV\\many"), kProductKey);
    const UniqueRegKey key(reg_createkeyW(HKEY_LOCAL_MACHINE, keyName.c_str()));
    for (int i = 0; i < state.range(0); ++i) {
        reg_setstringW(key.get(), FormatWide(TEXT("value %d"), i).c_str(), TEXT("a text"));
    }
    const std::string file = TemporaryPath("settings.xml");
    bool succeeded = RunTool({"-q", "-m", "av", "-p", "bench password", "-f", file}).succeeded;
    for (auto _ : state) {
        succeeded = succeeded && RunTool({"-q", "-o", "import", "-m", "av", "-f", file}).succeeded;
    }
    if (!succeeded) state.SkipWithError("the restore failed");
    std::filesystem::remove(file);
    CRegistry(true, false).DeleteKeyTree(keyName.c_str(), false);
}

void InMilliseconds(benchmark::internal::Benchmark* restore) {
    restore->Unit(benchmark::kMillisecond)->UseRealTime();
}
BENCHMARK(RestoreSettings)
    ->Name("RestoreFewSettings")
    ->Apply(InMilliseconds)
    ->Arg(10'000)
    ->Repetitions(3);
BENCHMARK(RestoreSettings)
    ->Name("RestoreManySettings")
    ->Apply(InMilliseconds)
    ->Arg(100'000)
    ->Iterations(1)
    ->Repetitions(3);

}  // namespace
