// The reduction of a configuration file to its VPN connections.
#pragma once

#include "common/text.h"

inline constexpr DWORD kVpnOnlyDone = 0;
inline constexpr DWORD kVpnOnlyFailed = 5;

// Rewrites the working copy at `path` so that it keeps the header, the user section and, of the
// `vpn` element, the connections of its first `sslvpn` and `ipsecvpn`. kVpnOnlyDone, also when the
// file has no root element (it is then left as it is); kVpnOnlyFailed when it cannot be loaded -
// with a log line - or saved.
DWORD FilterVpnOnlyConfig(const WString& path);
