#include <windows.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/support/file_facts.h"
#include "tests/support/machine.h"

namespace {

constexpr DWORD kMachine = CRYPTPROTECT_LOCAL_MACHINE;
constexpr DWORD kUser = CRYPTPROTECT_UI_FORBIDDEN;
constexpr Account kStranger{65534, 65534};

DATA_BLOB BlobOf(std::string& bytes) {
    return {static_cast<DWORD>(bytes.size()), reinterpret_cast<BYTE*>(bytes.data())};
}

std::string TakeBytes(DATA_BLOB& blob) {
    std::string bytes(reinterpret_cast<char*>(blob.pbData), blob.cbData);
    LocalFree(blob.pbData);
    return bytes;
}

std::string Protect(std::string plain, DWORD flags, std::string entropy = "",
                    const WCHAR* description = nullptr) {
    DATA_BLOB in = BlobOf(plain);
    DATA_BLOB salt = BlobOf(entropy);
    DATA_BLOB out{};
    EXPECT_TRUE(CryptProtectData(&in, description, &salt, nullptr, nullptr, flags, &out))
        << GetLastError();
    return TakeBytes(out);
}

// "failed" with the outputs untouched, or the plain text.
std::string Unprotect(std::string blob, std::string entropy = "") {
    BYTE mark = 0;
    DATA_BLOB in = BlobOf(blob);
    DATA_BLOB salt = BlobOf(entropy);
    DATA_BLOB out{1, &mark};
    if (CryptUnprotectData(&in, nullptr, &salt, nullptr, nullptr, kUser, &out)) {
        return TakeBytes(out);
    }
    EXPECT_EQ(out.pbData, &mark);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_DATA));
    return "failed";
}

class DataProtection : public MachineTest {};

TEST_F(DataProtection, RoundTripsUnderEachScopeAndNeverRepeatsItself) {
    for (const DWORD flags : {kMachine, kUser}) {
        for (const std::string& plain :
             {std::string(), std::string("x"), std::string(70'000, 's')}) {
            const std::string blob = Protect(plain, flags, "entropy");
            EXPECT_GT(blob.size(), plain.size());
            EXPECT_NE(blob, Protect(plain, flags, "entropy"));
            EXPECT_EQ(Unprotect(blob, "entropy"), plain);
            EXPECT_EQ(Unprotect(blob, "other entropy"), "failed");
            EXPECT_EQ(Unprotect(blob), "failed");
        }
        EXPECT_EQ(Protect("a secret text", flags).find("secret"), std::string::npos);
    }
}

TEST_F(DataProtection, ReturnsTheDescription) {
    std::string blob = Protect("data", kMachine, "", TEXT("Zertifikat \u00fc"));
    DATA_BLOB in = BlobOf(blob);
    DATA_BLOB out{};
    LPWSTR description = nullptr;
    ASSERT_TRUE(CryptUnprotectData(&in, &description, nullptr, nullptr, nullptr, 0, &out));
    EXPECT_EQ(TakeBytes(out), "data");
    EXPECT_EQ(std::basic_string<WCHAR>(description), TEXT("Zertifikat \u00fc"));
    LocalFree(description);
}

TEST_F(DataProtection, RefusesEveryChangedByteAndEveryCut) {
    const std::string blob = Protect("plain", kUser, "", TEXT("d"));
    for (std::size_t i = 0; i < blob.size(); ++i) {
        std::string changed = blob;
        changed[i] = static_cast<char>(changed[i] ^ 0x20);
        EXPECT_EQ(Unprotect(changed), "failed") << "byte " << i;
        EXPECT_EQ(Unprotect(blob.substr(0, i)), "failed") << "cut at " << i;
    }
    EXPECT_EQ(Unprotect(blob + "x"), "failed");
}

TEST_F(DataProtection, RefusesIncompleteArguments) {
    std::string plain = "plain";
    DATA_BLOB in = BlobOf(plain);
    DATA_BLOB out{};
    EXPECT_FALSE(CryptProtectData(nullptr, nullptr, nullptr, nullptr, nullptr, 0, &out));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_FALSE(CryptProtectData(&in, nullptr, nullptr, nullptr, nullptr, 0, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

// Two processes that need the keys first at the same time must end with the same keys.
TEST_F(DataProtection, ProcessesThatStartTogetherAgreeOnTheKeys) {
    if (!Role().empty()) {
        for (const DWORD flags : {kMachine, kUser}) {
            WriteWholeFile(ScratchFolder() / (Role() + std::to_string(flags)),
                           Protect("of " + Role(), flags));
        }
        return;
    }
    std::vector<BackgroundProcess> processes;
    processes.reserve(8);
    for (int i = 0; i < 8; ++i) processes.push_back(StartRole(std::to_string(i)));
    for (BackgroundProcess& process : processes) EXPECT_EQ(process.Wait().exitCode, 0);
    for (int i = 0; i < 8; ++i) {
        for (const DWORD flags : {kMachine, kUser}) {
            const auto file = ScratchFolder() / (std::to_string(i) + std::to_string(flags));
            EXPECT_EQ(Unprotect(ReadWholeFile(file)), "of " + std::to_string(i));
        }
    }
}

TEST_F(DataProtection, AnotherAccountReadsTheMachinesDataOnly) {
    SKIP_UNLESS_ADMINISTRATOR();
    if (Role() == "stranger") {
        EXPECT_EQ(Unprotect(ReadWholeFile(ScratchFolder() / "machine")), "for all");
        EXPECT_EQ(Unprotect(ReadWholeFile(ScratchFolder() / "user")), "failed");
        EXPECT_EQ(Unprotect(Protect("mine", kUser)), "mine");
        return;
    }
    WriteWholeFile(ScratchFolder() / "machine", Protect("for all", kMachine));
    WriteWholeFile(ScratchFolder() / "user", Protect("for me", kUser));
    ProcessOptions asStranger;
    asStranger.account = kStranger;
    const ProcessResult result = RunRole("stranger", asStranger);
    EXPECT_EQ(result.exitCode, 0) << result.output;
}

TEST_F(DataProtection, MemoryIsEncryptedInPlaceAndComesBackAlsoElsewhere) {
    std::vector<BYTE> memory(3 * 65'536 + 16, 0x41);
    const std::vector<BYTE> plain = memory;
    ASSERT_TRUE(CryptProtectMemory(memory.data(), static_cast<DWORD>(memory.size()), 0));
    // Equal blocks may not look alike, else a pattern of the secret would show.
    for (std::size_t i = 0; i + 32 <= memory.size(); i += 16) {
        ASSERT_NE(std::memcmp(&memory[i], plain.data(), 16), 0);
        ASSERT_NE(std::memcmp(&memory[i], &memory[i + 16], 16), 0) << i;
    }
    std::vector<BYTE> moved = memory;
    ASSERT_TRUE(CryptUnprotectMemory(moved.data(), static_cast<DWORD>(moved.size()), 0));
    EXPECT_EQ(moved, plain);

    EXPECT_FALSE(CryptProtectMemory(moved.data(), 17, 0));
    EXPECT_EQ(moved, plain);
}

}  // namespace
