// Certificates for the security library's tests, made with OpenSSL and written as PEM files to a
// temporary base directory: a CA, the server's certificate, a sender it signed ("CN=app1,
// O=Example") and a sender signed by another CA.
#pragma once

#include <string>

namespace vxtest {

struct PemPair {
    std::string certificate;  // full paths
    std::string key;
};

struct TestPki {
    std::string directory;  // the base directory, removed by RemoveTestPki
    std::string ca;
    std::string otherCa;
    PemPair server;
    PemPair sender;    // signed by ca
    PemPair stranger;  // signed by otherCa
};

// Makes the directory and the files; false (with the test failed) when something went wrong.
bool MakeTestPki(TestPki* pki);
void RemoveTestPki(const TestPki& pki);

// Writes a file below the base directory.
void WriteTestFile(const TestPki& pki, const std::string& name, const std::string& text);

}  // namespace vxtest
