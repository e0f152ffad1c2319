// TLS bytes for the security library's tests, made with OpenSSL without any server.
#pragma once

#include <string>

namespace vxtest {

// The first bytes a TLS client sends (its ClientHello records).
std::string MakeClientHello();

}  // namespace vxtest
