#pragma once

#include <filesystem>
#include <string>

namespace corvanis::monitoring_modules::test_support {

// Test certificates (EC P-256, two days) in one directory: a CA; a server certificate it signed
// for IP 127.0.0.1 and DNS localhost (files only); a client certificate it signed (CN client1),
// its key also encrypted with a password; and a second CA that signed nothing, for "wrong CA"
// cases; two flawed server certificates from the same CA and key, one for another host name and
// one expired. All but the server's also as PEM text.
struct tls_material {
    std::filesystem::path directory;
    std::string ca_certificate;
    std::string client_certificate;
    std::string client_key;
    std::string client_key_encrypted;
    std::string client_key_password;
    std::string other_ca_certificate;

    std::filesystem::path ca_certificate_file() const { return directory / "ca.crt"; }
    std::filesystem::path server_certificate_file() const { return directory / "server.crt"; }
    std::filesystem::path server_key_file() const { return directory / "server.key"; }
    std::filesystem::path other_name_certificate_file() const {
        return directory / "other_name.crt";
    }
    std::filesystem::path expired_certificate_file() const { return directory / "expired.crt"; }
    std::filesystem::path client_certificate_file() const { return directory / "client.crt"; }
    std::filesystem::path client_key_file() const { return directory / "client.key"; }
};

// One set per process, made on first use (openssl, about 0.1 s) in a temporary directory kept
// until exit. Throws std::runtime_error.
const tls_material& shared_tls_material();

}  // namespace corvanis::monitoring_modules::test_support
