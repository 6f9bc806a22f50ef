#include "host/pem_check.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cstring>
#include <memory>
#include <vector>

namespace corvanis::monitoring_modules::host {

namespace {

constexpr std::string_view ca_name = "ca_certificate";
constexpr std::string_view certificate_name = "client_certificate";
constexpr std::string_view key_name = "client_key";
constexpr std::string_view password_name = "client_key_password";

using bio_ptr = std::unique_ptr<BIO, decltype(&BIO_free)>;
using x509_ptr = std::unique_ptr<X509, decltype(&X509_free)>;
using key_ptr = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

bio_ptr memory(const std::string& text) {
    return {BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), &BIO_free};
}

// OpenSSL's last word on the failure, and a clean queue for whoever uses OpenSSL next.
std::string openssl_reason() {
    const unsigned long code = ERR_peek_last_error();
    ERR_clear_error();
    const char* reason = code == 0 ? nullptr : ERR_reason_error_string(code);
    return reason == nullptr ? std::string() : std::string(" (") + reason + ")";
}

std::string not_pem(const std::string& key) {
    return "is not PEM text (no \"-----BEGIN\" line); to read it from a file write " + key +
           "_file: PATH in the config or --set-file " + key + "=PATH";
}

// The read past the last certificate always fails: `reason` tells why, the queue is left clean.
std::vector<x509_ptr> read_certificates(const std::string& text, std::string& reason) {
    std::vector<x509_ptr> out;
    const auto bio = memory(text);
    while (true) {
        x509_ptr cert(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr), &X509_free);
        if (!cert) break;
        out.push_back(std::move(cert));
    }
    reason = openssl_reason();
    return out;
}

struct password_use {
    const std::string* password = nullptr;
    bool asked = false;
};

// Also tells whether the key needed a password; an empty one is never offered.
int give_password(char* buffer, int size, int, void* data) {
    auto& use = *static_cast<password_use*>(data);
    use.asked = true;
    const auto length = static_cast<int>(use.password->size());
    if (length == 0 || length > size) return -1;
    std::memcpy(buffer, use.password->data(), static_cast<std::size_t>(length));
    return length;
}

class checker {
  public:
    checker(const settings_schema& schema, const settings_map& values)
        : schema_(schema), values_(values) {}

    // The full key of the setting named `name`, else "".
    std::string key_of(std::string_view name) const {
        for (const auto& def : schema_.settings) {
            if (def.name == name) return def.key;
        }
        return {};
    }

    const std::string& value(const std::string& key) const {
        static const std::string none;
        const auto it = values_.find(key);
        return key.empty() || it == values_.end() ? none : it->second;
    }

  private:
    const settings_schema& schema_;
    const settings_map& values_;
};

}  // namespace

std::optional<pem_fault> check_pem_settings(const settings_schema& schema,
                                            const settings_map& values) {
    const checker c(schema, values);
    for (const auto name : {ca_name, certificate_name}) {
        const auto key = c.key_of(name);
        const auto& text = c.value(key);
        if (text.empty()) continue;
        if (text.find("-----BEGIN") == std::string::npos) return pem_fault{key, not_pem(key)};
        std::string reason;
        if (read_certificates(text, reason).empty())
            return pem_fault{key, "holds no certificate OpenSSL can read" + reason};
    }
    const auto key_key = c.key_of(key_name);
    const auto& key_text = c.value(key_key);
    if (key_text.empty()) return std::nullopt;
    if (key_text.find("-----BEGIN") == std::string::npos)
        return pem_fault{key_key, not_pem(key_key)};
    const auto password_key = c.key_of(password_name);
    password_use use{&c.value(password_key), false};
    const auto bio = memory(key_text);
    key_ptr key(PEM_read_bio_PrivateKey(bio.get(), nullptr, give_password, &use), &EVP_PKEY_free);
    if (!key) {
        const auto reason = openssl_reason();
        if (use.asked && use.password->empty())
            return pem_fault{key_key, "is encrypted and " + password_key + " is empty"};
        if (use.asked) return pem_fault{key_key, "does not open with " + password_key + reason};
        return pem_fault{key_key, "holds no private key OpenSSL can read" + reason};
    }
    const auto certificate_key = c.key_of(certificate_name);
    std::string ignored;
    const auto certificates = read_certificates(c.value(certificate_key), ignored);
    if (!certificates.empty() &&
        X509_check_private_key(certificates.front().get(), key.get()) != 1) {
        ERR_clear_error();
        return pem_fault{key_key, "does not belong to the certificate in " + certificate_key};
    }
    ERR_clear_error();  // decoders may leave notes behind even when they succeed
    return std::nullopt;
}

}  // namespace corvanis::monitoring_modules::host
