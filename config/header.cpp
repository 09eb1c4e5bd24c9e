#include "config/header.h"

#include <product_registry.h>
#include <windows.h>

#include <string>

#include "app/services/run_settings.h"
#include "common/format.h"
#include "common/product_version.h"
#include "config/password_verifier.h"
#include "install/installed_version.h"
#include "registry/registry.h"

namespace {

constexpr const char* kGeneratedBy = "SNT-" SENTREL_VERSION;
constexpr const char* kPartialConfiguration = "0";
constexpr const char* kOsVersion = "windows";
constexpr const char* kOsArchitecture = "x64";

constexpr std::size_t kPolicyCapacity = 260;   // bytes, with the terminator
constexpr std::size_t kVersionCapacity = 256;  // bytes, with the terminator

// The name of the policy that the management gave this machine; empty when there is none.
std::string PolicyName() {
    CRegistry key(true, true);
    WString name;
    if (key.OpenKey(kEndpointControlKey)) key.GetString(kPolicyNameValue, name);
    return WideToAnsi(name, kPolicyCapacity);
}

struct ClientVersion {
    std::string full;       // four numbers
    std::string shortened;  // three
};

// The client's version: given with -v, else the installed one, else this build's.
ClientVersion DecideVersion() {
    ClientVersion version = {SENTREL_VERSION, SENTREL_SHORT_VERSION};

    std::int32_t major = 0;
    std::int32_t minor = 0;
    std::int32_t build = 0;
    std::int32_t revision = 0;
    if (ReadInstalledVersion(&major, &minor, &build, &revision)) {
        version.shortened =
            std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(build);
        version.full = version.shortened + "." + std::to_string(revision);
    }

    const WString& override = g_RunSettings.strVersionOverride;
    if (SplitText(override, TEXT(".")).size() == 4) {
        version.full = WideToAnsi(override, kVersionCapacity);
        version.shortened = version.full.substr(0, version.full.rfind('.'));
    }
    return version;
}

// Today in UTC, as year/month/day.
std::string ExportDate() {
    SYSTEMTIME now = {};
    GetSystemTime(&now);
    return WideToAnsi(FormatWide(TEXT("%04d/%02d/%02d"), now.wYear, now.wMonth, now.wDay));
}

void AppendElement(TiXmlElement* root, const char* name, const std::string& text) {
    TiXmlElement element(name);
    element.InsertEndChild(TiXmlText(text));
    root->InsertEndChild(element);
}

}  // namespace

void WriteHeader(TiXmlElement* root, const SecureText& password) {
    root->SetAttribute("generatedby", kGeneratedBy);
    root->SetAttribute("policy", PolicyName());
    if (!password.empty()) {
        const std::string verifier = MakePasswordVerifier(password);
        if (!verifier.empty()) root->SetAttribute(kVerifierAttribute, verifier);
    }

    const ClientVersion version = DecideVersion();
    AppendElement(root, "sentrel_version", version.full);
    AppendElement(root, "version", version.shortened);
    AppendElement(root, "exported_by_version", SENTREL_VERSION);
    AppendElement(root, "date", ExportDate());
    AppendElement(root, "partial_configuration", kPartialConfiguration);
    AppendElement(root, "os_version", kOsVersion);
    AppendElement(root, "os_architecture", kOsArchitecture);
}
