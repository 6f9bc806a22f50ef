#include "mqtt/connection_probe.h"

#include <fcntl.h>
#include <netdb.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

namespace corvanis::monitoring_modules::mqtt {

namespace {

using steady = std::chrono::steady_clock;
using namespace std::chrono_literals;

// How long a handshake that went through waits for the broker's alert.
constexpr auto alert_wait = 1s;

using ctx_ptr = std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)>;
using ssl_ptr = std::unique_ptr<SSL, decltype(&SSL_free)>;
using bio_ptr = std::unique_ptr<BIO, decltype(&BIO_free)>;
using x509_ptr = std::unique_ptr<X509, decltype(&X509_free)>;
using key_ptr = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

struct socket_fd {
    int fd = -1;
    ~socket_fd() {
        if (fd >= 0) ::close(fd);
    }
};

class probe {
  public:
    probe(const probe_target& target, std::chrono::milliseconds budget,
          const std::function<bool()>& stop)
        : target_(target), deadline_(steady::now() + budget), stop_(stop) {}

    probe_finding run() {
        ERR_clear_error();
        ctx_ptr ctx(SSL_CTX_new(TLS_client_method()), &SSL_CTX_free);
        if (!ctx) return {};
        if (target_.use_tls) {
            if (auto problem = load_material(ctx.get()); !problem.empty()) {
                return {probe_finding::kind::tls, problem};
            }
        }
        socket_fd socket;
        if (auto finding = connect_tcp(socket);
            finding.what != probe_finding::kind::none || socket.fd < 0) {
            return finding;
        }
        return handshake(ctx.get(), socket.fd);
    }

  private:
    // The TLS library's reasons for what just failed, without repeats.
    static std::string tls_errors(const std::string& otherwise) {
        std::string joined;
        while (const unsigned long e = ERR_get_error()) {
            const char* reason = ERR_reason_error_string(e);
            const std::string text = reason != nullptr ? reason : "error " + std::to_string(e);
            if (joined.find(text) == std::string::npos) {
                joined += (joined.empty() ? "" : "; ") + text;
            }
        }
        return joined.empty() ? otherwise : joined;
    }

    // What a verification result says about the settings when it means "signed by another CA".
    static std::string unknown_issuer(long result) {
        switch (result) {
            case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
            case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
            case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
            case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
                return " (the broker's certificate is not signed by the CA certificate in the "
                       "settings)";
            default:
                return {};
        }
    }

    static bio_ptr text_bio(const std::string& text) {
        return bio_ptr(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), &BIO_free);
    }

    static bool looks_like_a_path(const std::string& text) {
        return text.find("-----BEGIN") == std::string::npos &&
               text.find('\n') == std::string::npos &&
               (text.starts_with("/") || text.starts_with("./") || text.starts_with("~/") ||
                text.find(":\\") != std::string::npos);
    }

    static int key_password(char* buffer, int size, int, void* password) {
        const auto* text = static_cast<const std::string*>(password);
        const int length = std::min(size, static_cast<int>(text->size()));
        std::memcpy(buffer, text->data(), static_cast<std::size_t>(length));
        return length;
    }

    // What keeps the library from using the TLS material at all; empty when usable.
    std::string load_material(SSL_CTX* ctx) const {
        if (!target_.ca_certificate.empty()) {
            auto bio = text_bio(target_.ca_certificate);
            int loaded = 0;
            while (X509* certificate = PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr)) {
                X509_STORE_add_cert(SSL_CTX_get_cert_store(ctx), certificate);
                X509_free(certificate);
                ++loaded;
            }
            ERR_clear_error();  // the end of the text reads as an error
            if (loaded == 0) {
                return looks_like_a_path(target_.ca_certificate)
                           ? "the CA certificate setting holds a file path ('" +
                                 target_.ca_certificate + "'), not the certificate's PEM text"
                           : "the CA certificate setting holds no PEM certificate";
            }
        }
        if (target_.client_certificate.empty()) return {};
        x509_ptr certificate(PEM_read_bio_X509(text_bio(target_.client_certificate).get(), nullptr,
                                               nullptr, nullptr),
                             &X509_free);
        if (!certificate || SSL_CTX_use_certificate(ctx, certificate.get()) != 1) {
            ERR_clear_error();
            return looks_like_a_path(target_.client_certificate)
                       ? "the client certificate setting holds a file path, not the "
                         "certificate's PEM text"
                       : "the client certificate setting holds no PEM certificate";
        }
        const auto& key_text =
            target_.client_key.empty() ? target_.client_certificate : target_.client_key;
        std::string password = target_.client_key_password;
        key_ptr key(
            PEM_read_bio_PrivateKey(text_bio(key_text).get(), nullptr, &key_password, &password),
            &EVP_PKEY_free);
        if (!key) {
            return "the client key cannot be read: " + tls_errors("no PEM private key");
        }
        if (SSL_CTX_use_PrivateKey(ctx, key.get()) != 1 || SSL_CTX_check_private_key(ctx) != 1) {
            ERR_clear_error();
            return "the client key does not match the client certificate";
        }
        return {};
    }

    // Waits until the socket is ready for the events; false at the deadline or on stop.
    bool wait(int fd, short events, steady::time_point until) const {
        until = std::min(until, deadline_);
        while (!stop_()) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(until - steady::now());
            if (left <= 0ms) return false;
            pollfd p{fd, events, 0};
            const int ready = ::poll(&p, 1,
                                     static_cast<int>(std::min<std::int64_t>(
                                         left.count(), 100)));  // slices: stop is seen
            if (ready > 0) return true;
            if (ready < 0 && errno != EINTR) return false;
        }
        return false;
    }

    probe_finding connect_tcp(socket_fd& socket) const {
        addrinfo hints{};
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* found = nullptr;
        if (::getaddrinfo(target_.host.c_str(), std::to_string(target_.port).c_str(), &hints,
                          &found) != 0) {
            return {};  // told apart by the caller
        }
        const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> addresses(found,
                                                                             &::freeaddrinfo);
        int error = 0;
        for (const addrinfo* a = found; a != nullptr && !stop_(); a = a->ai_next) {
            socket_fd candidate;
            candidate.fd = ::socket(a->ai_family, a->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC,
                                    a->ai_protocol);
            if (candidate.fd < 0) continue;
            if (::connect(candidate.fd, a->ai_addr, a->ai_addrlen) != 0) {
                if (errno != EINPROGRESS) {
                    error = errno;
                    continue;
                }
                if (!wait(candidate.fd, POLLOUT, deadline_)) return {};  // no answer in time
                socklen_t length = sizeof(error);
                ::getsockopt(candidate.fd, SOL_SOCKET, SO_ERROR, &error, &length);
                if (error != 0) continue;
            }
            std::swap(socket.fd, candidate.fd);
            return {};
        }
        if (error == ECONNREFUSED) return {probe_finding::kind::refused, {}};
        if (error != 0) return {probe_finding::kind::unreachable, std::strerror(error)};
        return {};
    }

    probe_finding handshake(SSL_CTX* ctx, int fd) const {
        ssl_ptr ssl(SSL_new(ctx), &SSL_free);
        if (!ssl || SSL_set_fd(ssl.get(), fd) != 1) return {};
        SSL_set_tlsext_host_name(ssl.get(), target_.host.c_str());
        SSL_set_verify(ssl.get(), SSL_VERIFY_NONE, nullptr);  // verified below, by reason
        const auto tls_failure = [&](const std::string& reason) {
            // A plain connection is only asking whether the port speaks TLS.
            return target_.use_tls ? probe_finding{probe_finding::kind::tls, reason}
                                   : probe_finding{};
        };
        for (;;) {
            const int rc = SSL_connect(ssl.get());
            if (rc == 1) break;
            const int error = SSL_get_error(ssl.get(), rc);
            if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) {
                if (!wait(fd, error == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT, deadline_)) {
                    return {};
                }
                continue;
            }
            return tls_failure(
                tls_errors("the broker closed the connection during the TLS handshake"));
        }
        if (!target_.use_tls) return {probe_finding::kind::tls_expected, {}};
        if (!target_.ca_certificate.empty()) {
            if (const long result = SSL_get_verify_result(ssl.get()); result != X509_V_OK) {
                return tls_failure(X509_verify_cert_error_string(result) + unknown_issuer(result));
            }
            const x509_ptr certificate(SSL_get1_peer_certificate(ssl.get()), &X509_free);
            if (certificate &&
                X509_check_host(certificate.get(), target_.host.data(), target_.host.size(), 0,
                                nullptr) != 1 &&
                X509_check_ip_asc(certificate.get(), target_.host.c_str(), 0) != 1) {
                return tls_failure("the server's certificate is not issued for " + target_.host);
            }
        }
        // A broker that wants a client certificate says so once it has seen the handshake end.
        const auto until = steady::now() + alert_wait;
        char byte = 0;
        while (wait(fd, POLLIN, until)) {
            const int rc = SSL_read(ssl.get(), &byte, 1);
            if (rc > 0) return {};
            const int error = SSL_get_error(ssl.get(), rc);
            if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) continue;
            return tls_failure(
                tls_errors("the broker closed the connection after the TLS handshake"));
        }
        ERR_clear_error();
        return {};
    }

    const probe_target& target_;
    steady::time_point deadline_;
    const std::function<bool()>& stop_;
};

}  // namespace

probe_finding probe_connection(const probe_target& target, std::chrono::milliseconds budget,
                               const std::function<bool()>& stop) {
    try {
        return probe(target, budget, stop).run();
    } catch (...) {
        ERR_clear_error();
        return {};  // the probe only explains; the failure stands as the library reported it
    }
}

}  // namespace corvanis::monitoring_modules::mqtt
