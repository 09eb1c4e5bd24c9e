#include "tests/support/machine.h"

#include <fstream>
#include <iterator>
#include <random>
#include <utility>

#include "tests/support/machine_port.h"

namespace fs = std::filesystem;

namespace {

// How a test that starts itself again hands its machine and the part to play to the new process.
constexpr char kMachineVariable[] = "SENTREL_TEST_MACHINE";
constexpr char kRoleVariable[] = "SENTREL_TEST_ROLE";

std::vector<std::string> ArgumentsOfRunningTest() {
    const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
    return {std::string("--gtest_filter=") + test.test_suite_name() + "." + test.name()};
}

// The folder of this process's machines: the same for all its tests, since a process decides on its
// endpoint once.
fs::path FreshRoot() {
    static const fs::path root =
        fs::temp_directory_path() / ("sentrel-test-" + std::to_string(std::random_device()()));
    fs::create_directory(root);
    fs::permissions(root, fs::perms(0755));
    return root;
}

}  // namespace

MachineTest::MachineTest()
    : root_(ReadVariable(kMachineVariable)), ownsRoot_(ReadVariable(kRoleVariable).empty()) {
    if (ownsRoot_) {
        root_ = FreshRoot();
        MakeFreshMachine();
        fs::create_directory(EndpointFolder());
        for (const fs::path& folder : {TemporaryFolder(), ScratchFolder()}) {
            fs::create_directory(folder);
            fs::permissions(folder, fs::perms(01777));
        }
        SetVariable(kMachineVariable, root_.string());
    }
    NameEndpoint(EndpointFolder());
    for (const char* name : {"TMPDIR", "TMP", "TEMP"}) {
        SetVariable(name, TemporaryFolder().string());
    }
}

MachineTest::~MachineTest() {
    std::error_code ignored;
    if (ownsRoot_) fs::remove_all(root_, ignored);
}

std::vector<fs::path> MachineTest::FilesInTemporaryFolder() const {
    std::vector<fs::path> files;
    // A folder that was removed while it is open can no longer be looked into.
    constexpr auto kPass = fs::directory_options::skip_permission_denied;
    for (const auto& entry : fs::recursive_directory_iterator(TemporaryFolder(), kPass)) {
        if (!entry.is_directory()) files.push_back(entry.path());
    }
    return files;
}

std::string MachineTest::Role() {
    return ReadVariable(kRoleVariable);
}

BackgroundProcess MachineTest::StartRole(const std::string& role, ProcessOptions options,
                                         const fs::path& program) {
    options.environment.emplace_back(kRoleVariable, role);
    return {program.string(), ArgumentsOfRunningTest(), options};
}

ProcessResult MachineTest::RunRole(const std::string& role, ProcessOptions options,
                                   const fs::path& program) {
    ProcessResult result = StartRole(role, std::move(options), program).Wait();
    EXPECT_EQ(result.exitCode, 0) << role << ": " << result.output << result.errors;
    return result;
}

void MachineTest::RunRoles(int count) {
    std::vector<BackgroundProcess> parts;
    for (int i = 0; i < count; ++i) parts.push_back(StartRole(std::to_string(i)));
    for (BackgroundProcess& part : parts) EXPECT_EQ(part.Wait().exitCode, 0) << part.Output();
}

void MachineTest::InstallLibrary(const std::string& library, const fs::path& folder,
                                 const std::string& name) {
    const fs::path file = FileOfBuild(library);
    fs::copy_file(file, folder / (name + file.extension().string()),
                  fs::copy_options::overwrite_existing);
}

void MachineTest::InstallModules(const fs::path& folder) {
    SKIP_WITHOUT(kFipsModule);
    for (const char* name : {"fips", "fipsmodule", "legacy"}) {
        const fs::path file = FileOfBuild(name);
        fs::copy_file(file, folder / file.filename(), fs::copy_options::skip_existing);
    }
}

fs::path MachineTest::CopyOf(const fs::path& program) const {
    const fs::path folder = ScratchFolder() / "bin";
    fs::create_directory(folder);
    for (const auto& entry : fs::directory_iterator(ProgramFolder())) {
        const fs::path& library = entry.path();
        if (library.extension() == ".so" || library.extension() == ".dll") {
            LinkFile(library, folder / library.filename());
        }
    }
    fs::copy_file(program, folder / program.filename());
    return folder / program.filename();
}

std::string ReadWholeFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string ReadText(const fs::path& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void WriteWholeFile(const fs::path& path, const std::string& bytes) {
    std::ofstream file(path, std::ios::binary);
    file << bytes;
    ASSERT_TRUE(file.flush().good()) << path;
}
