// Masking and protecting a mapped file of 256 MiB, beside memcpy and the data-protection call
// alone.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "common/path.h"
#include "common/secure_text.h"
#include "protect/data_protect.h"
#include "protect/file_mask.h"
#include "protect/mapped_file.h"

namespace {

constexpr std::size_t kFileSize = std::size_t{256} << 20;

// The file, mapped, with every page in memory.
class LargeFile {
  public:
    LargeFile() {
        const auto path = std::filesystem::temp_directory_path() / "large";
        std::ofstream(path, std::ios::binary) << std::string(kFileSize, 'x');
        path_ = path.generic_string<WCHAR>();
    }
    LargeFile(const LargeFile&) = delete;
    LargeFile& operator=(const LargeFile&) = delete;
    ~LargeFile() { DeleteFileW(path_.c_str()); }

    const WCHAR* Path() const { return path_.c_str(); }
    bool Map() { return file_.Open(Path(), MappedFile::Sharing::kNone) && file_.Map(); }
    BYTE* Bytes() const { return file_.Bytes(); }

  private:
    WString path_;
    MappedFile file_;
};

void CopyMemory(benchmark::State& state) {
    LargeFile file;
    if (!file.Map()) state.SkipWithError("the file could not be mapped");
    const std::vector<BYTE> source(kFileSize, 1);
    for (auto _ : state) std::memcpy(file.Bytes(), source.data(), kFileSize);
}
BENCHMARK(CopyMemory)->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(5);

void MaskMemory(benchmark::State& state) {
    LargeFile file;
    if (!file.Map()) state.SkipWithError("the file could not be mapped");
    for (auto _ : state) ApplyFileMask(file.Bytes(), kFileSize);
}
BENCHMARK(MaskMemory)->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(5);

// The highest memory of the process while it does a job, in bytes above what it held before. The
// high-water mark is set back first.
template <typename Job>
double PeakOf(Job job) {
    std::ofstream("/proc/self/clear_refs") << "5";
    const auto status = [](const char* name) {
        std::ifstream file("/proc/self/status");
        for (std::string word; file >> word;) {
            if (word == name) {
                double kilobytes = 0;
                file >> kilobytes;
                return kilobytes * 1024;
            }
        }
        return 0.0;
    };
    const double before = status("VmRSS:");
    job();
    return status("VmHWM:") - before;
}

void ProtectCallPeak(benchmark::State& state) {
    LargeFile file;
    if (!file.Map()) state.SkipWithError("the file could not be mapped");
    for (auto _ : state) {
        state.SetIterationTime(PeakOf([&] {
            DATA_BLOB plain = {static_cast<DWORD>(kFileSize), file.Bytes()};
            DATA_BLOB blob = {};
            if (!CryptProtectData(&plain, nullptr, nullptr, nullptr, nullptr,
                                  CRYPTPROTECT_LOCAL_MACHINE, &blob)) {
                state.SkipWithError("the data could not be protected");
            }
            LocalFree(blob.pbData);
        }));
    }
}
BENCHMARK(ProtectCallPeak)->UseManualTime()->Iterations(1);

void ProtectFilePeak(benchmark::State& state) {
    const LargeFile file;
    for (auto _ : state) {
        state.SetIterationTime(PeakOf([&] {
            if (DataProtectFile(file.Path(), ProtectionScope::kMachine) != kDataOk) {
                state.SkipWithError("the file could not be protected");
            }
        }));
    }
}
BENCHMARK(ProtectFilePeak)->UseManualTime()->Iterations(1);

void UnprotectFilePeak(benchmark::State& state) {
    const LargeFile file;
    if (DataProtectFile(file.Path(), ProtectionScope::kMachine) != kDataOk) {
        state.SkipWithError("the file could not be protected");
    }
    for (auto _ : state) {
        state.SetIterationTime(PeakOf([&] { DataUnprotectFile(file.Path()); }));
    }
}
BENCHMARK(UnprotectFilePeak)->UseManualTime()->Iterations(1);

}  // namespace
