// The user's settings in a backup: plain ones beside protected ones, few beside many.
#include <benchmark/benchmark.h>
#include <product_registry.h>
#include <utilsdll.h>

#include "common/format.h"
#include "common/handles.h"
#include "registry/registry.h"
#include "registry/user_configuration.h"

namespace {

// Gives the user `count` values in keys of a hundred, of which every tenth is protected if wanted.
void MakeSettings(int count, bool withProtected) {
    CRegistry(false, false).DeleteKeyTree(kProductKey, false);
    for (int i = 0; i < count; i += 100) {
        const UniqueRegKey key(reg_createkeyW(
            HKEY_CURRENT_USER, FormatWide(TEXT("%s\\SA_UI\\Key%d"), kProductKey, i / 100).c_str()));
        for (int j = 0; j < 100; ++j) {
            const WString name = FormatWide(TEXT("value %d"), j);
            if (withProtected && j % 10 == 0) {
                reg_setstring_enc_cuW(key.get(), name.c_str(), TEXT("a protected text"));
            } else {
                reg_setstringW(key.get(), name.c_str(), TEXT("a plain text"));
            }
        }
    }
}

void Export(benchmark::State& state, bool withProtected) {
    MakeSettings(static_cast<int>(state.range(0)), withProtected);
    const SecureText password(TEXT("bench password"));
    for (auto _ : state) {
        TiXmlElement root("sentrel_configuration");
        ExportUserConfiguration(&root, password, 0);
    }
}

void UserSettingsPlain(benchmark::State& state) {
    Export(state, false);
}
void UserSettingsProtected(benchmark::State& state) {
    Export(state, true);
}
void UserSettingsMany(benchmark::State& state) {
    Export(state, true);
}

constexpr int kFew = 10'000;
constexpr int kMany = 100'000;

}  // namespace

BENCHMARK(UserSettingsPlain)
    ->Arg(kFew)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Repetitions(3);
BENCHMARK(UserSettingsProtected)
    ->Arg(kFew)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Repetitions(3);
BENCHMARK(UserSettingsMany)
    ->Arg(kMany)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(1)
    ->Repetitions(3);
