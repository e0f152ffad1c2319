#include "tls_test_client.h"

#include <openssl/ssl.h>

namespace vxtest {

std::string MakeClientHello() {
    SSL_CTX* context = SSL_CTX_new(TLS_client_method());
    SSL* ssl = SSL_new(context);
    BIO* in = BIO_new(BIO_s_mem());
    BIO* out = BIO_new(BIO_s_mem());
    SSL_set_bio(ssl, in, out);
    SSL_connect(ssl);  // waits for the server's answer: the hello is in out
    char* data = nullptr;
    long length = BIO_get_mem_data(out, &data);
    std::string hello(data, static_cast<size_t>(length > 0 ? length : 0));
    SSL_free(ssl);
    SSL_CTX_free(context);
    return hello;
}

}  // namespace vxtest
