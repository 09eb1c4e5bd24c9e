// A machine with an installed client, and the configuration tool run on it from outside.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "tests/support/machine.h"

class ClientMachine : public MachineTest {
  protected:
    // Makes the machine's registry and a few settings: two features, one protected value.
    ClientMachine();

    static constexpr const char* kPassword = "pass phrase";

    ProcessResult Tool(std::vector<std::string> arguments, const ProcessOptions& options = {}) {
        return RunProgram("SNConfig", arguments, options);
    }
    // A backup with the password to the file; other switches go before.
    ProcessResult Backup(std::vector<std::string> switches = {});
    // A restore with the password from the file.
    ProcessResult Restore(std::vector<std::string> switches = {});
    // How a run is to end and what it is to say.
    static void ExpectRun(const ProcessResult& run, int exitCode, const std::string& output) {
        EXPECT_EQ(run.exitCode, exitCode);
        EXPECT_EQ(run.output, output);
        EXPECT_EQ(run.errors, "");
    }
    // The client's administration tool; must succeed.
    static void Client(const std::vector<std::string>& arguments);

    // Values below the product key of HKEY_LOCAL_MACHINE.
    static void SetText(const std::string& key, const std::string& name, const std::string& text);
    static void SetNumber(const std::string& key, const std::string& name, DWORD number);
    // As stored; empty when missing.
    static std::string Text(const std::string& key, const std::string& name);

    std::string Log() const { return ReadWholeFile(LogFolder() / "SA_CONFIGD.log"); }
    // Where the client keeps its logs; empty while it has none.
    std::filesystem::path LogFolder() const;
    std::string BackupContent() const { return ReadWholeFile(file_); }

    std::filesystem::path file_ = ScratchFolder() / "backup.xml";
};
