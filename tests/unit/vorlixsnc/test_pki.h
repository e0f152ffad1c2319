// Certificates for the security tests, made with OpenSSL and written as PEM files to a directory:
// a CA, the server's certificate, a sender it signed ("CN=app1,O=Example"), a second sender it
// signed ("CN=app2,O=Example") and another CA that signed nothing of these. No test framework
// here: the fuzz targets use it too.
#pragma once

#include <string>

namespace vxtest {

struct PemPair {
    std::string certificate;  // full paths
    std::string key;
};

struct TestPki {
    std::string directory;  // removed by RemoveTestPki
    std::string ca;
    std::string otherCa;
    PemPair server;    // "CN=printhost,O=Example", signed by ca
    PemPair sender;    // "CN=app1,O=Example", signed by ca
    PemPair outsider;  // "CN=app2,O=Example", signed by ca
};

// Makes the files in directory (empty: a new temporary one); false when something went wrong.
bool MakeTestPki(TestPki* pki, const std::string& directory = "");
void RemoveTestPki(const TestPki& pki);

// Writes a file below the base directory; false when it could not.
bool WriteTestFile(const TestPki& pki, const std::string& name, const std::string& text);
std::string ReadTestFile(const std::string& path);

}  // namespace vxtest
