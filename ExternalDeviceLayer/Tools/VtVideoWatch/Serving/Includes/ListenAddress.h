/*
 * An address to listen on, as text and in parts. No state; any thread.
 */
#ifndef LISTEN_ADDRESS_H
#define LISTEN_ADDRESS_H

#include <cstdint>
#include <string>

#include "Fault.h"

// Where it is served when nothing else is said. The port is in no public list of those that exporters use.
constexpr const char* szDefaultListen = "127.0.0.1:19843";

enum class EListenKind : uint8_t
{
    IPV4,
    IPV6,
    UNIX
};

struct SListenAddress
{
    EListenKind eKind = EListenKind::IPV4;
    std::string szHost; // "127.0.0.1", "::1", the path of a unix socket
    std::string szZone; // of an IPv6 address, "eth0" in [fe80::1%eth0]:80; mostly empty
    uint16_t uiPort = 0;
    bool bIsLoopback = false; // also a unix socket
};

/*
 * Reads 127.0.0.1:80, [::1]:80 or unix:/run/http.sock. Addresses are in numbers, port 0 is any free one.
 *   roAddress  out  the parts
 */
CFault ListenAddress_Read(const std::string& rszText, SListenAddress& roAddress);

/* The same as text. */
std::string ListenAddress_Print(const SListenAddress& roAddress);

/* Whether a host, without port, is one that only this machine means: localhost, 127.0.0.0/8, [::1]. */
bool ListenAddress_IsLoopbackHost(const std::string& rszHost);

#endif
