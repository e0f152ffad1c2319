// The credentials of a secured service for the fuzz targets, made with OpenSSL at start-up: a CA,
// the service's certificate signed by it, and two senders' certificates signed by it, one of
// them an authorized sender. The service's certificate, key and CA go into the base directory
// beside a ZELLPD.INI whose [vorlixsnc] section names them, as an administrator installs them.
#pragma once

#include <string>

namespace vxfuzz {

// The authorized sender's name as the service reads it from its certificate.
constexpr const char* kAuthorizedSender = "CN=fuzz-sender,O=Vorlix Fuzz";

struct SenderFiles {
    std::string certificate;
    std::string key;
};

struct SecuredProfile {
    std::string ca;            // the CA certificate the senders check the service against
    SenderFiles authorized;    // kAuthorizedSender
    SenderFiles unauthorized;  // a sender of the same CA that is not in the list
};

// Writes the profile into baseDirectory and the senders' files into senderDirectory. Aborts when
// OpenSSL cannot make them: the target would fuzz nothing.
SecuredProfile WriteSecuredProfile(const std::string& baseDirectory,
                                   const std::string& senderDirectory);

}  // namespace vxfuzz
