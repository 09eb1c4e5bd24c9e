// A machine of its own for every test.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "tests/support/capabilities.h"
#include "tests/support/process.h"

// Gives the test a fresh endpoint and a fresh temporary folder, and removes everything at its end.
// Both are named to the test's own process and to the programs that it starts by the environment.
// Every test should have a process to itself, as ctest gives it: what the layer keeps in memory of
// the machine lives as long as the process.
class MachineTest : public testing::Test {
  protected:
    MachineTest();
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
    // and ends with exit code 0 when none of its expectations failed. It can run as another file
    // that holds the same program.
    static std::string Role();
    static BackgroundProcess StartRole(const std::string& role, ProcessOptions options = {},
                                       const std::filesystem::path& program = PathOfThisProgram());
    // Runs a part to its end; none of its expectations may fail.
    static ProcessResult RunRole(const std::string& role, ProcessOptions options = {},
                                 const std::filesystem::path& program = PathOfThisProgram());
    // Runs that many parts beside each other, "0", "1" and so on, to their ends.
    static void RunRoles(int count);
    // What a part tells the test, which waits for it: a line of standard output.
    static void Say(const std::string& line) { std::cout << line << std::endl; }
    // Copies a library of the build to a folder, where it stands for another one.
    static void InstallLibrary(const std::string& library, const std::filesystem::path& folder,
                               const std::string& name);
    // Copies OpenSSL's modules, and what belongs to them, to a folder.
    static void InstallModules(const std::filesystem::path& folder);
    // A copy of a program in a new folder, with the libraries of the build beside it: for what a
    // program keeps in its own folder.
    std::filesystem::path CopyOf(const std::filesystem::path& program) const;

  private:
    std::filesystem::path root_;
    bool ownsRoot_;
};

// The text of a file, byte by byte; empty when it cannot be read.
std::string ReadWholeFile(const std::filesystem::path& path);
// The same with the line ends of a text file of the target as "\n".
std::string ReadText(const std::filesystem::path& path);
void WriteWholeFile(const std::filesystem::path& path, const std::string& bytes);

// A part that the test plays as somebody else is played.
#define SKIP_UNLESS_ADMINISTRATOR() \
    if (Role().empty()) SKIP_WITHOUT(kOtherAccounts)
