// Start-up in FIPS mode, beside loading OpenSSL's FIPS module alone. The module tests itself once
// in a process, so each figure is of a process of its own.
#include <benchmark/benchmark.h>
#include <openssl/crypto.h>
#include <openssl/provider.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utilsdll.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>

#include "cryptd/provider_handles.h"
#include "cryptd/providers.h"

namespace {

// Runs the job in a copy of this process; the processor's seconds that it took, or 0 when it
// failed. It waits for nothing, so other work on the machine does not count.
template <typename Job>
double SecondsInProcess(Job job) {
    static auto* const seconds = static_cast<double*>(
        mmap(nullptr, sizeof(double), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    *seconds = 0;
    const pid_t process = fork();
    if (process == 0) {
        cfg_is_fips_mode_enabled();  // whoever sets OpenSSL up has asked this, and so has a
                                     // registry
        const std::clock_t start = std::clock();
        if (job()) *seconds = static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
        _exit(EXIT_SUCCESS);
    }
    waitpid(process, nullptr, 0);
    return *seconds;
}

template <typename Job>
void Measure(benchmark::State& state, Job job) {
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(PROGRAM_FOLDER);
    cfg_set_fips_mode(true);
    for (auto _ : state) {
        double best = SecondsInProcess(job);
        for (int i = 1; i < 100; ++i) best = std::min(best, SecondsInProcess(job));
        if (best == 0) state.SkipWithError("the module could not be loaded");
        state.SetIterationTime(best);
    }
    cfg_set_fips_mode(false);
    std::filesystem::current_path(before);
}

void FipsModule(benchmark::State& state) {
    Measure(state, [] {
        const std::string folder = std::filesystem::current_path();
        setenv("OPENSSL_MODULES", folder.c_str(), 1);
        OSSL_LIB_CTX* const context = OSSL_LIB_CTX_new();
        return OSSL_LIB_CTX_load_config(context, (folder + "/fipsmodule.cnf").c_str()) == 1 &&
               OSSL_PROVIDER_load(context, (folder + "/fips").c_str()) != nullptr;
    });
}
BENCHMARK(FipsModule)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(1);

void FipsStart(benchmark::State& state) {
    Measure(state, [] { return CryptdLoadProviders() == 0 && providerHandles.engineInstalled; });
}
BENCHMARK(FipsStart)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(1);

}  // namespace
