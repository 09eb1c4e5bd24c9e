// The features whose settings the plug-ins carry. The plug-ins differ in nothing else.
#pragma once

#include <product_registry.h>
#include <windows.h>

struct Feature {
    const WCHAR* library;   // the plug-in's base name
    const char* element;    // the feature's name in a file, below the root
    const WCHAR* key;       // the path of its key in HKEY_LOCAL_MACHINE
    const char* name;       // what it is called
    const WCHAR* sections;  // subkeys that stand as elements of their own name, separated by
                            // blanks and with "/" between levels
};

#define FEATURE_KEY(name) TEXT(SENTREL_PRODUCT_KEY "\\" name)
inline constexpr Feature kFeatures[] = {
    {TEXT("cfmsystem"), "system", FEATURE_KEY("SA_SYSTEM"), "System configuration", TEXT("")},
    {TEXT("cfmvpn"), "vpn", FEATURE_KEY("SA_VPN"), "IPSEC and SSL VPN",
     TEXT("sslvpn sslvpn/connections sslvpn/options ")
         TEXT("ipsecvpn ipsecvpn/connections ipsecvpn/options")},
    {TEXT("cfmav"), "av", FEATURE_KEY("SA_AV"), "AntiVirus", TEXT("")},
    {TEXT("cfmvssoma"), "ssoma", FEATURE_KEY("SA_SSOMA"), "Single Sign-On Mobility Agent",
     TEXT("")},
    {TEXT("cfmwanopt"), "wanopt", FEATURE_KEY("SA_WANOPT"), "WAN Optimization", TEXT("")},
    {TEXT("cfmwf"), "webfilter", FEATURE_KEY("SA_WEBFILTER"), "Web Filter", TEXT("")},
    {TEXT("cfmfw"), "firewall", FEATURE_KEY("SA_FIREWALL"), "FireWall", TEXT("")},
    {TEXT("cfmvuln"), "vuln", FEATURE_KEY("SA_VULN"), "Vulnerability Scan", TEXT("")},
    {TEXT("cfmsandbox"), "sandbox", FEATURE_KEY("SA_SANDBOX"), "Sandboxing", TEXT("")},
    {TEXT("cfmae"), "ae", FEATURE_KEY("SA_AE"), "Anti-Exploit", TEXT("")},
    {TEXT("cfmusbmon"), "usbmon", FEATURE_KEY("SA_USBMON"), "USB Monitoring", TEXT("")},
    {TEXT("cfmcloudscan"), "cloudscan", FEATURE_KEY("SA_CLOUDSCAN"), "Cloud Scan", TEXT("")},
    {TEXT("cfmac"), "ac", FEATURE_KEY("SA_AC"), "Application Control", TEXT("")},
    {TEXT("cfmrs"), "rs", FEATURE_KEY("SA_RS"), "Ransomware Protection", TEXT("")},
    {TEXT("cfmztna"), "ztna", FEATURE_KEY("SA_ZTNA"), "Zero-Trust Network Access", TEXT("")},
    {TEXT("cfmpam"), "pam", FEATURE_KEY("SA_PAM"), "Privileged Access Management", TEXT("")},
    {TEXT("cfmesnac"), "esnac", FEATURE_KEY("SA_ESNAC"), "Endpoint Control", TEXT("")},
};
#undef FEATURE_KEY

// The feature of the plug-in that this is linked into.
extern const Feature& kFeature;
