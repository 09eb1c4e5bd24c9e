// Decrypting a file of 64 MiB, beside what the job consists of: reading the file, one key stretch,
// AES-256-GCM, and writing the plain text twice.
#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <utilsdll.h>

#include <filesystem>
#include <fstream>
#include <vector>

#include "bench/program.h"
#include "config/config_file.h"

namespace {

constexpr std::size_t kFileSize = std::size_t{64} << 20;
constexpr DWORD kCipherOverhead = 28;
constexpr int kRounds = 210'000;

std::filesystem::path TemporaryPath(const char* name) {
    return std::filesystem::temp_directory_path() / name;
}

void WriteFileWhole(const std::filesystem::path& path, const std::vector<char>& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// An encrypted configuration file of 64 MiB.
class EncryptedFile {
  public:
    EncryptedFile() {
        std::string plain(kRootStartTag);
        plain.resize(kFileSize - kCipherOverhead - kRootEndTag.size(), 'x');
        plain += kRootEndTag;
        std::vector<char> cipher(kFileSize);
        auto size = static_cast<DWORD>(cipher.size());
        encrypt_buffer(plain.data(), static_cast<DWORD>(plain.size()), cipher.data(), &size,
                       TEXT("bench password"));
        WriteFileWhole(path_, cipher);
    }
    EncryptedFile(const EncryptedFile&) = delete;
    EncryptedFile& operator=(const EncryptedFile&) = delete;
    ~EncryptedFile() {
        std::filesystem::remove(path_);
        std::filesystem::remove(plain_);
    }

    std::string Path() const { return path_; }

    // Lets the tool write the plain copy.
    ProgramRun Decrypt(benchmark::State& state) const {
        const ProgramRun run = RunTool({"-f", path_, "-p", "bench password", "-O", plain_});
        std::error_code missing;
        if (!run.succeeded ||
            std::filesystem::file_size(plain_, missing) != kFileSize - kCipherOverhead) {
            state.SkipWithError("the file was not decrypted");
        }
        return run;
    }

  private:
    std::filesystem::path path_ = TemporaryPath("backup.enc");
    std::filesystem::path plain_ = TemporaryPath("plain.xml");
};

void DecryptOnly(benchmark::State& state) {
    const EncryptedFile file;
    for (auto _ : state) file.Decrypt(state);
}
BENCHMARK(DecryptOnly)->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(5);

void DecryptSteps(benchmark::State& state) {
    const EncryptedFile file;
    const auto first = TemporaryPath("first");
    const auto second = TemporaryPath("second");
    for (auto _ : state) {
        std::vector<char> bytes(kFileSize);
        std::ifstream(file.Path(), std::ios::binary)
            .read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        unsigned char key[32];
        const unsigned char salt[16] = {};
        PKCS5_PBKDF2_HMAC("bench password", -1, salt, sizeof salt, kRounds, EVP_sha512(),
                          sizeof key, key);
        std::vector<char> plain(kFileSize);
        EVP_CIPHER_CTX* const cipher = EVP_CIPHER_CTX_new();
        int size = 0;
        EVP_DecryptInit_ex(cipher, EVP_aes_256_gcm(), nullptr, key, salt);
        EVP_DecryptUpdate(cipher, reinterpret_cast<unsigned char*>(plain.data()), &size,
                          reinterpret_cast<const unsigned char*>(bytes.data()),
                          static_cast<int>(kFileSize));
        EVP_CIPHER_CTX_free(cipher);
        WriteFileWhole(first, plain);
        WriteFileWhole(second, plain);
    }
    std::filesystem::remove(first);
    std::filesystem::remove(second);
}
BENCHMARK(DecryptSteps)->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(5);

void DecryptOnlyPeak(benchmark::State& state) {
    const EncryptedFile file;
    for (auto _ : state) state.SetIterationTime(file.Decrypt(state).peakBytes);
}
BENCHMARK(DecryptOnlyPeak)->UseManualTime()->Iterations(1);

void EncryptedFileSize(benchmark::State& state) {
    for (auto _ : state) state.SetIterationTime(double{kFileSize});
}
BENCHMARK(EncryptedFileSize)->UseManualTime()->Iterations(1);

}  // namespace
