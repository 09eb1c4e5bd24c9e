// What the command line asks of this run.
#pragma once

#include "common/secure_text.h"
#include "common/text.h"

// Filled once, by ParseCommandLine, before anything else reads it; read-only afterwards, except
// that a VPN-only run replaces the module. All texts start empty.
struct RunSettings {
    WString strConfigFile;            // -f, environment variables expanded
    WString strModule;                // -m
    WString strOperation;             // -o
    WString strSessionId;             // -i: decimal text, handed to the plug-ins as it is
    SecureText strPassword;           // -p or -t: encrypts and decrypts the configuration file
    SecureText strUnlockPassword;     // -k: opens a locked configuration for an import
    WString strOutputFile;            // -O, environment variables expanded
    WString strVersionOverride;       // -v: used when it has exactly four parts
    bool bDebug = false;              // -d: DebugPrint prints
    bool bQuiet = false;              // -q: no notifications to the user interface
    bool bIncludeUserConfig = false;  // -u: the backup carries the user's own settings
    bool bImpersonateUser = true;     // cleared by --NOIMPERSONATEUSER
    bool bVpnOnly = false;            // --VPNONLY
    bool bCallerVerified = false;     // -c: the caller proved that it started this process
};

extern RunSettings g_RunSettings;
