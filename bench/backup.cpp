// A whole backup, beside one stretch of a pass phrase.
#include <benchmark/benchmark.h>
#include <utilsdll.h>

#include <filesystem>
#include <string>

#include "bench/program.h"
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
BENCHMARK(KeyStretch)->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(5);

// A whole backup of the machine, from the start of the program to its end.
void WholeBackup(benchmark::State& state) {
    const auto file = std::filesystem::temp_directory_path() / "backup.xml";
    for (auto _ : state) {
        std::filesystem::remove(file);
        const ProgramRun run = RunTool({"-q", "-p", "bench password", "-f", file});
        if (!run.succeeded || !std::filesystem::exists(file)) {
            state.SkipWithError("the backup failed");
        }
    }
}
BENCHMARK(WholeBackup)->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(5);

}  // namespace
