// Protected files, the encrypted forms of passwords and values, and what stays hidden.
#define OPENSSL_SUPPRESS_DEPRECATED  // random bytes are given by the test

#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <product_registry.h>
#include <utilsdll.h>

#include "common/handles.h"
#include "common/hex.h"
#include "protect/built_in_secrets.h"
#include "protect/data_protect.h"
#include "protect/encrypted_forms.h"
#include "tests/support/cipher.h"
#include "tests/support/machine.h"
#include "tests/support/registry.h"
#include "tests/support/secrets.h"
#include "tests/support/wide.h"

namespace {

class ProtectedFile : public MachineTest {
  protected:
    int Protect(ProtectionScope scope = ProtectionScope::kMachine) {
        return DataProtectFile(Wide(file_).c_str(), scope);
    }
    int Unprotect() { return DataUnprotectFile(Wide(file_).c_str()); }
    std::string Content() { return ReadWholeFile(file_); }

    // The entropy that the file carries, behind the mask.
    std::string Entropy() {
        std::string bytes = Content();
        DataMaskBuffer(bytes.data(), static_cast<DWORD>(bytes.size()));
        return bytes.substr(1, 64);
    }

    std::filesystem::path file_ = ScratchFolder() / "file";
    std::string plain_ =
        std::string(100, ' ') +
        "<?xml version=\"1.0\"?><sentrel_configuration>secret</sentrel_configuration>";
};

TEST_F(ProtectedFile, IsReadAgainByThoseItIsFor) {
    ASSERT_TRUE(DataProtectInit());
    if (!Role().empty()) {
        // Key material is drawn anew in every process: what is read carries its own entropy.
        EXPECT_EQ(Unprotect(), kDataOk);
        EXPECT_EQ(Content() == plain_, Role() == "reader");
        return;
    }
    for (const auto scope : {ProtectionScope::kMachine, ProtectionScope::kUser}) {
        WriteWholeFile(file_, plain_);
        std::filesystem::permissions(file_, std::filesystem::perms(0666));
        ASSERT_EQ(Protect(scope), kDataOk);
        const std::string first = Entropy();
        EXPECT_EQ(Content().find("secret"), std::string::npos);
        RunRole("reader");
        ASSERT_EQ(Protect(scope), kDataOk);
        EXPECT_NE(Entropy(), first) << "every protection has a salt of its own";
        if (!TargetHas(kOtherAccounts)) continue;
        RunRole(scope == ProtectionScope::kMachine ? "reader" : "outsider", As(kStranger));
    }
    SKIP_WITHOUT(kOtherAccounts);
}

TEST_F(ProtectedFile, DamageLeavesNoDocumentBehind) {
    ASSERT_TRUE(DataProtectInit());
    WriteWholeFile(file_, plain_);
    ASSERT_EQ(Protect(), kDataOk);
    const std::string good = Content();
    for (std::size_t i = 0; i < 200; ++i) {
        WriteWholeFile(file_, good.substr(0, i));
        EXPECT_EQ(Unprotect(), i == 0 ? kDataFailed : kDataOk);
        EXPECT_NE(Content(), plain_) << i;
    }
    SKIP_WITHOUT(kDataProtection);
    for (std::size_t i = 0; i < 200; ++i) {
        std::string flipped = good;
        flipped[i] = static_cast<char>(flipped[i] ^ 0x10);
        WriteWholeFile(file_, flipped);
        EXPECT_EQ(Unprotect(), kDataOk);
        // The scope byte alone tells only which flag is passed; the blob says for whom it is.
        EXPECT_TRUE(i == 0 || Content() != plain_) << i;
    }
}

TEST_F(ProtectedFile, MaskAloneIsItsOwnInverse) {
    ASSERT_TRUE(DataProtectInit());
    for (const std::size_t size : {1u, 64u, 65u, 127u, 128u, 129u, 1000u}) {
        const std::string text(size, 'x');
        WriteWholeFile(file_, text);
        EXPECT_EQ(DataMaskFile(Wide(file_).c_str()), kDataOk);
        EXPECT_NE(Content(), text);
        std::string buffer = text;
        EXPECT_NE(DataMaskBuffer(buffer.data(), static_cast<DWORD>(buffer.size())), 0);
        EXPECT_EQ(Content(), buffer);
        EXPECT_EQ(Unprotect(), kDataOk) << "a file that was only masked";
        EXPECT_EQ(Content(), text);
    }
    WriteWholeFile(file_, "");
    EXPECT_EQ(Protect(), kDataFailed);
    EXPECT_EQ(Unprotect(), kDataFailed);
    EXPECT_EQ(DataUnprotectFile(Wide(ScratchFolder() / "missing").c_str()), kDataFailed);
}

// --- Key material -------------------------------------------------------------------------------

using Slot = std::vector<BYTE>;

Slot Opened(KeySlot& slot) {
    const OpenedMemory opened(slot);
    return {opened.Bytes(), opened.Bytes() + kSlotSize};
}

TEST_F(ProtectedFile, RegistryValuesAreMixedIntoTheSlots) {
    if (Role().empty()) {
        for (const char* size : {"0", "1", "32", "64", "65", "100"}) RunRole(size);
        return;
    }
    // 1. Random bytes 1 to 8, and values of that size in all places but one, which has a text.
    const auto count = [](unsigned char* bytes, int size) {
        for (int i = 0; i < size; ++i) bytes[i] = static_cast<unsigned char>(i + 1);
        return 1;
    };
    const RAND_METHOD counting = {nullptr, count, nullptr, nullptr, count, nullptr};
    RAND_set_rand_method(&counting);
    const std::size_t size = std::stoul(Role());
    SetRaw(HKEY_LOCAL_MACHINE, kProductKey, kDataSaltValue, REG_BINARY, Slot(size, 7));
    SetRaw(HKEY_LOCAL_MACHINE, kProductKey, kDataKeyValue, REG_BINARY, Slot(size, 8));
    SetRaw(HKEY_CURRENT_USER, kProductKey, kDataSaltValue, TEXT("text"));
    SetRaw(HKEY_CURRENT_USER, kProductKey, kDataKeyValue, REG_BINARY, Slot(size, 9));
    ASSERT_TRUE(DataProtectInit());
    RAND_set_rand_method(nullptr);

    // 2. HMACs of those bytes' halves under each other, worked out with the openssl tool.
    Slot salt;
    Slot key;
    HexToBytes(
        "4B1AC850EDAAB14C92F4A3095DFD0D60C2ED1EF43A869E140CABBBBA9C0CC50C"
        "4E1352EA12510814E3B6DFAFA3FEB5800668428326750260331A760C4DDA802A",
        salt);
    HexToBytes(
        "45FC1E32D9391DCCCC67BF72A60E413A6D5B2ED03FA5A80F009CEFAC73B90BC7"
        "F29FD0DCF8FA7AEB8D0301AE02B3A0D389787D08EACB1E63E3D988FB38FCE910",
        key);
    // 3. The value stands at the start of its slot, or empties it where it does not fit.
    const auto mixed = [&](Slot slot, BYTE value) {
        if (size > kSlotSize) slot.assign(kSlotSize, 0);
        std::fill_n(slot.begin(), size > kSlotSize ? 0 : size, value);
        Slot mac(kSlotSize);
        HMAC(EVP_sha3_512(), slot.data(), int{kSlotSize}, key.data(), kSlotSize, mac.data(),
             nullptr);
        return mac;
    };
    KeyMaterial& machine = KeyMaterialOf(ProtectionScope::kMachine);
    KeyMaterial& user = KeyMaterialOf(ProtectionScope::kUser);
    EXPECT_EQ(Opened(machine.salt), mixed(salt, 7));
    EXPECT_EQ(Opened(machine.key), mixed(key, 8));
    EXPECT_EQ(Opened(user.salt), salt);
    EXPECT_EQ(Opened(user.key), mixed(key, 9));
}

TEST_F(ProtectedFile, NothingSecretStandsInMemoryBetweenItsUses) {
    SKIP_WITHOUT(kDataProtection);
    ASSERT_TRUE(DataProtectInit());
    std::vector<HiddenPattern> secrets;
    for (const auto which : {BuiltInPassPhrase::kA, BuiltInPassPhrase::kB}) {
        secrets.emplace_back(OpenedPassPhrase(which).c_str(), 32);
    }
    BYTE mask[kFileMaskSize] = {};
    ASSERT_NE(DataMaskBuffer(mask, sizeof mask), 0);
    for (BYTE& byte : mask) byte ^= 0x5B;  // as it was stored last
    secrets.emplace_back(mask, sizeof mask);
    WipeMemory(mask, sizeof mask);

    // A protection whose entropy is known, and a text that goes through it.
    KeyMaterial& material = KeyMaterialOf(ProtectionScope::kMachine);
    {
        SecureBytes salt(kSlotSize);
        std::copy_n(OpenedMemory(material.salt).Bytes(), kSlotSize, salt.data());
        BYTE entropy[kSlotSize] = {};
        ASSERT_TRUE(DataDeriveEntropy(material.key, material.salt, entropy));
        secrets.emplace_back(entropy, sizeof entropy);
        WipeMemory(entropy, sizeof entropy);
        std::copy_n(salt.data(), kSlotSize, OpenedMemory(material.salt).Bytes());
    }
    for (KeySlot* slot : {&material.key, &material.salt}) {
        secrets.emplace_back(OpenedMemory(*slot).Bytes(), kSlotSize);
    }
    secrets.push_back(PartOf(MadeSecret(1)));
    SecureBytes text;
    for (int i = 0; i < 40; ++i) {
        const SecureText piece = MadeSecret(1);
        const auto* const bytes = reinterpret_cast<const BYTE*>(piece.c_str());
        text.insert(text.end(), bytes, bytes + piece.size() * sizeof(WCHAR));
    }
    WriteSecret(file_, text.data(), text.size());
    std::exchange(text, {});
    // Far down the stack, where the search does not overwrite what is left there.
    const auto deepDown = [&] {
        volatile char above[1 << 16] = {};
        return above[0] + Protect();
    };
    ASSERT_EQ(deepDown(), kDataOk);
    for (std::size_t i = 0; i < secrets.size(); ++i) EXPECT_FALSE(secrets[i].StandsInMemory()) << i;
    ASSERT_EQ(Unprotect(), kDataOk);
    EXPECT_FALSE(secrets.back().StandsInMemory());
    EXPECT_EQ(std::filesystem::file_size(file_), 40 * 1600U);
    const SecureText held = MadeSecret(1);
    EXPECT_TRUE(secrets.back().StandsInMemory()) << "what is there is found";
}

TEST(KeyMaterial, EntropyIsHkdfWithSha3) {
    KeySlot salt;
    KeySlot key;
    for (std::size_t i = 0; i < kSlotSize; ++i) {
        salt.Bytes()[i] = static_cast<BYTE>(i);
        key.Bytes()[i] = static_cast<BYTE>(i + 64);
    }
    salt.Protect();
    key.Protect();
    BYTE entropy[kSlotSize] = {};
    ASSERT_TRUE(DataDeriveEntropy(key, salt, entropy));
    // Worked out with another implementation of HKDF.
    EXPECT_EQ(BytesToHex(entropy, kSlotSize),
              "AEB041FF0C2F31BD2C331B49C4362958BB1CBE8001838AF3F3A4E88E2788F148"
              "10DE8921E9AEAF1A127540818576F103D1E04655E2DBE269DA5252D4F896C804");
    const OpenedMemory renewed(salt);
    EXPECT_EQ(BytesToHex(renewed.Bytes(), kSlotSize),
              "25F7BCD89C6CA1E3AE0410A2CFE22CB303605234A9CBC7B834B53051C39FAB81"
              "E4B6A22330DA42B325B31ED74F1CD60C571C9451B4CC506643BF866C4858B352");
}

TEST_F(ProtectedFile, PasswordArgumentIsReadInBothEncodings) {
    const auto encrypt = [](const std::string& plain) {
        const std::string cipher =
            Encrypted(plain, OpenedPassPhrase(BuiltInPassPhrase::kB).c_str());
        return Utf8ToWide(BytesToHex(reinterpret_cast<const BYTE*>(cipher.data()), cipher.size()));
    };
    const WString kept = TEXT("kept where there is none");
    const std::pair<WString, WString> cases[] = {
        {encrypt("pw1"), TEXT("pw1")},
        {encrypt("größer"), TEXT("größer")},
        {encrypt({'p', 0, 'w', 0, '1', 0}), TEXT("pw1")},
        {encrypt("x"), TEXT("x")},
        {encrypt(""), TEXT("")},
        {EncryptPasswordArgument(TEXT("Grüße aus Bern")), TEXT("Grüße aus Bern")},
        {EncryptPasswordArgument(TEXT("Žlutý kůň")), TEXT("Žlutý kůň")},
        {EncryptPasswordArgument(TEXT("Ā")), TEXT("Ā")},
        {EncryptPasswordArgument(TEXT("x")), TEXT("x")},
        {encrypt(std::string(232, 'p')), WString(232, 'p')},
        {TEXT("password"), kept},
        {TEXT(""), kept},
        {encrypt("pw1") + TEXT("0"), kept},
        {WString(5000, 'A'), kept},
    };
    for (const auto& [argument, expected] : cases) {
        SecureText password(kept);
        EXPECT_EQ(DecryptPasswordArgument(argument.c_str(), password), expected != kept);
        EXPECT_EQ(password.c_str(), expected);
    }
}

TEST_F(ProtectedFile, TheProgramHoldsNoSecretInPlain) {
    const std::string program = ReadWholeFile(FileOfBuild("SNConfig"));
    ASSERT_FALSE(program.empty());
    for (const auto which : {BuiltInPassPhrase::kA, BuiltInPassPhrase::kB}) {
        const OpenedPassPhrase opened(which);
        const WString phrase = opened.c_str();
        ASSERT_GE(phrase.size(), 32u);
        const std::string wide(reinterpret_cast<const char*>(phrase.data()), 32);
        EXPECT_EQ(program.find(wide), std::string::npos);
        EXPECT_EQ(program.find(WideToUtf8(phrase).substr(0, 16)), std::string::npos);
    }
    BYTE mask[128] = {};
    ASSERT_NE(DataMaskBuffer(mask, sizeof mask), 0);
    EXPECT_EQ(program.find(std::string(reinterpret_cast<const char*>(mask), 16)),
              std::string::npos);
}

}  // namespace
