// What a test needs of its target beyond the client's own calls. A test that is left out for want
// of one says which; docs/windows-tests.md says why.
#pragma once

#include <gtest/gtest.h>

#include <string>

inline const std::string kAdministrator = "an administrator";  // whom the test runs as
inline const std::string kOtherAccounts = "other accounts";    // to start programs as
inline const std::string kSetSessions = "sessions by choice";  // of users and processes
inline const std::string kFaults = "faults at system calls";
inline const std::string kSmallDisk = "a small disk of the test's own";
inline const std::string kFullDisk = "a full disk";
inline const std::string kSystemLog = "a system log of the test's own";
inline const std::string kSymbolicLinks = "symbolic links";
inline const std::string kBytesAsNames = "names of any bytes";
inline const std::string kInstaller = "an installer";
inline const std::string kLocales = "locales by environment";
inline const std::string kThreadLanguages = "languages of threads";
inline const std::string kFilePermissions = "permissions of files";
inline const std::string kDataProtection = "data protection";
inline const std::string kLockedMemory = "a view of locked memory";
inline const std::string kWholeCopies = "files copied at once";
inline const std::string kWholeAppends = "files appended to at once";
inline const std::string kFirstInstances = "pipes served alone";
inline const std::string kOrderOfValues = "values in their order";
inline const std::string kFipsModule = "OpenSSL's FIPS module";

bool TargetHas(const std::string& capability);

#define SKIP_WITHOUT(capability) \
    if (!TargetHas(capability)) GTEST_SKIP() << "without " << (capability)
