// A machine of its own for every test.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/process.h"

// Gives the test a fresh endpoint and a fresh temporary folder, and removes everything at its end.
// Both are named to the test's own process and to the programs that it starts by the environment.
// Every test should have a process to itself, as ctest gives it: what the layer keeps in memory of
// the machine lives as long as the process.
class MachineTest : public testing::Test {
  protected:
    MachineTest();
    MachineTest(const MachineTest&) = delete;
    MachineTest& operator=(const MachineTest&) = delete;
    ~MachineTest() override;

    // The folder that is "the machine".
    std::filesystem::path EndpointFolder() const { return root_ / "endpoint"; }
    // The folder that is named to programs as the place of temporary files.
    std::filesystem::path TemporaryFolder() const { return root_ / "temp"; }
    // A folder for the test's own files, which every account may enter and write.
    std::filesystem::path ScratchFolder() const { return root_ / "scratch"; }

    // Every file, at any depth, that stands in the temporary folder now.
    std::vector<std::filesystem::path> FilesInTemporaryFolder() const;

    // Tests of several processes: the running test case starts itself again on the same machine to
    // play another part. The part finds its name in Role() - which is empty in the test itself -
    // and ends with exit code 0 when none of its expectations failed.
    static std::string Role();
    static BackgroundProcess StartRole(const std::string& role, ProcessOptions options = {});
    static ProcessResult RunRole(const std::string& role, ProcessOptions options = {});

  private:
    std::filesystem::path root_;
    bool ownsRoot_;
};

// The text of a file, byte by byte; empty when it cannot be read.
std::string ReadWholeFile(const std::filesystem::path& path);
void WriteWholeFile(const std::filesystem::path& path, const std::string& bytes);

// True when the test may do what an administrator may, such as starting a program as another user.
bool IsAdministrator();

#define SKIP_UNLESS_ADMINISTRATOR() \
    if (!IsAdministrator()) GTEST_SKIP() << "needs the rights of an administrator (root)"
