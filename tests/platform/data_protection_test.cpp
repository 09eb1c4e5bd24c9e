#include <windows.h>
// (after the types)
#include <bcrypt.h>
#include <wtsapi32.h>

#include <algorithm>
#include <cstring>
#include <optional>

#include "common/handles.h"
#include "tests/support/accounts.h"
#include "tests/support/machine.h"

namespace {

constexpr DWORD kMachine = CRYPTPROTECT_LOCAL_MACHINE;
constexpr DWORD kUser = CRYPTPROTECT_UI_FORBIDDEN;

// The bytes that CryptProtectData or its counterpart makes of others. A failure hands out nothing.
template <typename Call>
std::optional<std::string> Made(Call call, std::string bytes, std::string entropy, DWORD flags) {
    const auto blobOf = [](std::string& data) {
        return DATA_BLOB{static_cast<DWORD>(data.size()), reinterpret_cast<BYTE*>(data.data())};
    };
    BYTE mark = 0;
    DATA_BLOB in = blobOf(bytes);
    DATA_BLOB salt = blobOf(entropy);
    DATA_BLOB out{1, &mark};
    if (!call(&in, nullptr, &salt, nullptr, nullptr, flags, &out)) {
        const DWORD error = GetLastError();
        EXPECT_TRUE(out.pbData == &mark || out.pbData == nullptr);
        EXPECT_TRUE(error == ERROR_INVALID_DATA || !TargetHas(kDataProtection)) << error;
        return std::nullopt;
    }
    std::string made(reinterpret_cast<char*>(out.pbData), out.cbData);
    LocalFree(out.pbData);
    return made;
}

std::string Protect(const std::string& plain, DWORD flags, const std::string& entropy = "") {
    return Made(CryptProtectData, plain, entropy, flags).value();
}

// The plain text, or "failed".
std::string Unprotect(const std::string& blob, const std::string& entropy = "") {
    return Made(CryptUnprotectData, blob, entropy, kUser).value_or("failed");
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

TEST_F(DataProtection, TheUsersFollowsTheImpersonatedUserTheMachinesDoesNot) {
    SKIP_UNLESS_ADMINISTRATOR();
    LogOn(EndpointFolder(), 1, std::to_string(kStranger));
    const std::string ofProcess = Protect("text", kUser);
    UniqueHandle token;
    ASSERT_TRUE(WTSQueryUserToken(1, token.put()));
    ASSERT_TRUE(ImpersonateLoggedOnUser(token.get()));
    const std::string ofUser = Protect("text", kUser);
    const std::string ofMachine = Protect("text", kMachine);
    EXPECT_EQ(Unprotect(ofProcess), "failed");
    EXPECT_EQ(Unprotect(ofUser), "text");
    EXPECT_TRUE(RevertToSelf());
    EXPECT_EQ(Unprotect(ofUser), "failed");
    EXPECT_EQ(Unprotect(ofMachine), "text");
}

TEST_F(DataProtection, RefusesEveryCut) {
    const std::string blob = Protect("plain", kUser);
    for (std::size_t i = 0; i < blob.size(); ++i) {
        EXPECT_EQ(Unprotect(blob.substr(0, i)), "failed") << "cut at " << i;
    }
}

TEST_F(DataProtection, RefusesEveryChangedByte) {
    SKIP_WITHOUT(kDataProtection);
    const std::string blob = Protect("plain", kUser);
    for (std::size_t i = 0; i < blob.size(); ++i) {
        std::string changed = blob;
        changed[i] = static_cast<char>(changed[i] ^ 0x20);
        EXPECT_EQ(Unprotect(changed), "failed") << "byte " << i;
    }
    EXPECT_EQ(Unprotect(blob + "x"), "failed");
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
    RunRoles(8);
    for (int i = 0; i < 8; ++i) {
        for (const DWORD flags : {kMachine, kUser}) {
            const auto file = ScratchFolder() / (std::to_string(i) + std::to_string(flags));
            EXPECT_EQ(Unprotect(ReadWholeFile(file)), "of " + std::to_string(i));
        }
    }
}

TEST_F(DataProtection, MemoryIsEncryptedInPlaceAndComesBackAlsoElsewhere) {
    SKIP_WITHOUT(kDataProtection);
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

TEST(SystemRandomBytes, FillTheBufferAndNoMore) {
    constexpr ULONG kSize = 1 << 20;
    std::vector<BYTE> bytes(kSize + 1);
    ASSERT_EQ(BCryptGenRandom(nullptr, bytes.data(), kSize, BCRYPT_USE_SYSTEM_PREFERRED_RNG), 0);
    EXPECT_EQ(bytes.back(), 0);
    const auto zeros = std::count(bytes.begin(), bytes.end(), BYTE{0});
    EXPECT_NEAR(static_cast<double>(zeros), kSize / 256.0, 1000);  // 15 standard deviations
    EXPECT_NE(BCryptGenRandom(nullptr, bytes.data(), kSize, 0), 0);
}

}  // namespace
