#include "registry/vpn_only.h"

#include <configuration_format.h>

#include <tinyxml.h>

#include <algorithm>
#include <iterator>
#include <string>

#include "app/services/client_log.h"
#include "common/xml_file.h"

namespace {

constexpr const WCHAR* kCannotOpen = TEXT("Cannot open file %s");

// Names of the nodes that are kept below each parent: an element's tag, any other node's text.
constexpr const char* kKeptInRoot[] = {
    "sentrel_version",       "version",    "exported_by_version", "date",
    "partial_configuration", "os_version", "os_architecture",     "vpn",
    "user_configuration",
};
constexpr const char* kKeptInVpn[] = {"sslvpn", "ipsecvpn"};
constexpr const char* kKeptInTunnel[] = {"connections"};

template <std::size_t size>
void Reduce(TiXmlNode* parent, const char* const (&keep)[size]) {
    for (TiXmlNode* child = parent->FirstChild(); child != nullptr;) {
        TiXmlNode* const next = child->NextSibling();
        if (std::find(std::begin(keep), std::end(keep), child->ValueStr()) == std::end(keep)) {
            parent->RemoveChild(child);
        }
        child = next;
    }
}

void ReduceToConnections(TiXmlElement* root) {
    Reduce(root, kKeptInRoot);
    // The elements of these names: a comment that reads the same is no VPN configuration.
    TiXmlElement* const vpn = root->FirstChildElement("vpn");
    if (vpn == nullptr) return;
    Reduce(vpn, kKeptInVpn);
    for (const char* tunnel : kKeptInVpn) {
        if (auto* const element = vpn->FirstChildElement(tunnel)) Reduce(element, kKeptInTunnel);
    }
}

}  // namespace

DWORD FilterVpnOnlyConfig(const WString& path) {
    TiXmlDocument document;
    if (!LoadXmlFile(path, document)) {
        log_error_fmt(g_hLog, kCannotOpen, path.c_str());
        return kVpnOnlyFailed;
    }
    TiXmlElement* const root = document.FirstChildElement(kRootElement);
    if (root == nullptr) return kVpnOnlyDone;

    ReduceToConnections(root);
    return SaveXmlFile(path, document) ? kVpnOnlyDone : kVpnOnlyFailed;
}
