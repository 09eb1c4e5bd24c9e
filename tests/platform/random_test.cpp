#include <windows.h>
// (after the types)
#include <bcrypt.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

TEST(SystemRandomBytes, FillTheBufferAndNoMore) {
    constexpr ULONG kSize = 1 << 20;
    std::vector<BYTE> bytes(kSize + 1);
    ASSERT_EQ(BCryptGenRandom(nullptr, bytes.data(), kSize, BCRYPT_USE_SYSTEM_PREFERRED_RNG), 0);
    EXPECT_EQ(bytes.back(), 0);
    const auto zeros = std::count(bytes.begin(), bytes.end(), BYTE{0});
    EXPECT_NEAR(static_cast<double>(zeros), kSize / 256.0, 1000);  // 15 standard deviations
    EXPECT_NE(BCryptGenRandom(nullptr, bytes.data(), kSize, 0), 0);
}
