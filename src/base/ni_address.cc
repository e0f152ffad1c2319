// Host addresses of the network interface layer: the 16-byte IPv6 form with IPv4 addresses
// mapped (::ffff:a.b.c.d), their text, and whether an address belongs to this host.
#include <cstring>

#include "base/ni.h"
#include "base/ni_os.h"
#include "base/text.h"

namespace vx {

namespace {

constexpr uint8_t kMappedPrefix[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};

// The IPv6 text with the longest run (two groups or more) of zero groups shortened to "::".
void FormatIpv6(const NiAddress& address, char* out, size_t cap) {
    uint16_t groups[8];
    for (int i = 0; i < 8; ++i)
        groups[i] = static_cast<uint16_t>(address.bytes[2 * i] << 8 | address.bytes[2 * i + 1]);
    int bestStart = -1;
    int bestLength = 1;
    for (int i = 0; i < 8;) {
        if (groups[i] != 0) {
            ++i;
            continue;
        }
        int start = i;
        while (i < 8 && groups[i] == 0) ++i;
        if (i - start > bestLength) {
            bestStart = start;
            bestLength = i - start;
        }
    }
    out[0] = '\0';
    for (int i = 0; i < 8; ++i) {
        if (i == bestStart) {
            AppendText(out, cap, "::");
            i += bestLength - 1;
            continue;
        }
        bool afterGap = bestStart >= 0 && i == bestStart + bestLength;
        AppendFormat(out, cap, "%s%x", i == 0 || afterGap ? "" : ":", groups[i]);
    }
}

}  // namespace

NiAddress NiMappedZeroAddress() {
    NiAddress address{};
    memcpy(address.bytes, kMappedPrefix, sizeof kMappedPrefix);
    return address;
}

bool NiIsMappedIpv4(const NiAddress& address) {
    return memcmp(address.bytes, kMappedPrefix, sizeof kMappedPrefix) == 0;
}

bool NiIsLoopback(const NiAddress& address) {
    if (NiIsMappedIpv4(address)) return address.bytes[12] == 127;
    static constexpr uint8_t kIpv6Loopback[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    return memcmp(address.bytes, kIpv6Loopback, sizeof kIpv6Loopback) == 0;
}

const char* NiAddrToStr(const NiAddress& address) {
    static thread_local char text[64];
    if (NiIsMappedIpv4(address)) {
        FormatText(text, sizeof text, "%u.%u.%u.%u", address.bytes[12], address.bytes[13],
                   address.bytes[14], address.bytes[15]);
    } else {
        FormatIpv6(address, text, sizeof text);
    }
    return text;
}

int NiIsLocalAddress(const NiAddress& address) {
    if (NiIsLoopback(address)) return 1;
    // The unspecified address stands for no host in particular.
    NiAddress mappedZero = NiMappedZeroAddress();
    static constexpr NiAddress kZero{};
    if (memcmp(address.bytes, mappedZero.bytes, sizeof address.bytes) == 0 ||
        memcmp(address.bytes, kZero.bytes, sizeof address.bytes) == 0)
        return 0;
    return NiOsIsLocal(address) ? 1 : 0;
}

}  // namespace vx
