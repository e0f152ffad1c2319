#!/bin/sh
# Certificates for the Windows security library's tests, made with the openssl command at build
# time (the tests run under Wine, which has no tool to make them): RSA keys, since a PFX file with
# an EC key cannot be imported there. Each *.name file holds the subject in the RFC 4514 form the
# Linux library gives for the same certificate.
#   make_windows_pki.sh <directory>
set -eu
dir=$1
rm -rf "$dir"
mkdir -p "$dir"
cd "$dir"

key() { openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out "$1.key" 2>/dev/null; }
ca() { # name subject
    key "$1"
    openssl req -new -x509 -key "$1.key" -subj "$2" -days 3650 -sha256 -out "$1.pem" \
        -addext basicConstraints=critical,CA:TRUE -addext keyUsage=critical,keyCertSign,cRLSign
}
issue() { # name subject signer [extra req options]
    name=$1 subject=$2 signer=$3
    shift 3
    key "$name"
    openssl req -new -key "$name.key" -subj "$subject" -utf8 "$@" -out "$name.csr"
    openssl x509 -req -in "$name.csr" -CA "$signer.pem" -CAkey "$signer.key" -CAcreateserial \
        -days 3650 -sha256 -out "$name.pem" 2>/dev/null
    openssl x509 -in "$name.pem" -noout -subject -nameopt RFC2253,-esc_msb |
        sed 's/^subject=//' | tr -d '\n' >"$name.name"
}
pfx() { # name file password
    openssl pkcs12 -export -in "$1.pem" -inkey "$1.key" -out "$2" -passout "pass:$3"
}

ca ca "/O=Example/CN=Vorlix Test CA"
ca other-ca "/O=Elsewhere/CN=Other CA"
# Same name as the CA, another key: what it signs must not pass for the CA's.
ca impostor-ca "/O=Example/CN=Vorlix Test CA"

issue server "/O=Example/CN=print-server" ca
pfx server server.pfx pfx-secret
pfx server server-open.pfx ""
issue sender "/O=Example/CN=app1" ca
pfx sender sender.pfx ""
issue stranger "/O=Example/CN=app1" other-ca
issue forged "/O=Example/CN=app1" impostor-ca
# Escapes, several values in one name, characters outside ASCII.
issue odd "/DC=org/DC=example/O=Müller, Söhne \"Druck\"/OU=Sales+UID=u7/CN=#app<2>;x" ca \
    -multivalue-rdn
printf 'not a PFX file\n' >junk.pfx
rm -f ./*.csr ./*.srl
touch stamp
