#include "tests/support/tls_material.h"

#include <fstream>

#include "tests/support/process.h"

namespace corvanis::monitoring_modules::test_support {

namespace fs = std::filesystem;

namespace {

tls_material make_tls_material(const fs::path& dir) {
    const fs::path log = dir / "openssl.log";
    const auto p = [&](const char* name) { return (dir / name).string(); };
    const auto req = [&](std::vector<std::string> extra) {
        std::vector<std::string> argv = {"openssl", "req",      "-newkey",
                                         "ec",      "-pkeyopt", "ec_paramgen_curve:prime256v1",
                                         "-nodes"};
        argv.insert(argv.end(), extra.begin(), extra.end());
        run(argv, log);
    };
    const auto sign = [&](const char* csr, const char* ext, const char* out,
                          const char* days = "2") {
        run({"openssl", "x509", "-req", "-in", p(csr), "-CA", p("ca.crt"), "-CAkey", p("ca.key"),
             "-CAcreateserial", "-days", days, "-extfile", p(ext), "-out", p(out)},
            log);
    };

    req({"-x509", "-keyout", p("ca.key"), "-out", p("ca.crt"), "-days", "2", "-subj",
         "/CN=test-ca"});
    req({"-x509", "-keyout", p("other_ca.key"), "-out", p("other_ca.crt"), "-days", "2", "-subj",
         "/CN=other-ca"});
    req({"-keyout", p("server.key"), "-out", p("server.csr"), "-subj", "/CN=localhost"});
    std::ofstream(dir / "server.ext")
        << "subjectAltName=IP:127.0.0.1,DNS:localhost\nextendedKeyUsage=serverAuth\n";
    sign("server.csr", "server.ext", "server.crt");
    sign("server.csr", "server.ext", "expired.crt", "-1");  // ended a day before it began
    std::ofstream(dir / "other_name.ext")
        << "subjectAltName=DNS:other-host.example\nextendedKeyUsage=serverAuth\n";
    sign("server.csr", "other_name.ext", "other_name.crt");
    req({"-keyout", p("client.key"), "-out", p("client.csr"), "-subj", "/CN=client1"});
    std::ofstream(dir / "client.ext") << "extendedKeyUsage=clientAuth\n";
    sign("client.csr", "client.ext", "client.crt");

    tls_material m;
    m.directory = dir;
    m.client_key_password = "k3y-pass";
    run({"openssl", "pkey", "-in", p("client.key"), "-aes256", "-passout",
         "pass:" + m.client_key_password, "-out", p("client_encrypted.key")},
        log);
    m.ca_certificate = read_text(dir / "ca.crt");
    m.client_certificate = read_text(dir / "client.crt");
    m.client_key = read_text(dir / "client.key");
    m.client_key_encrypted = read_text(dir / "client_encrypted.key");
    m.other_ca_certificate = read_text(dir / "other_ca.crt");
    return m;
}

}  // namespace

const tls_material& shared_tls_material() {
    static temp_dir dir("mqtt-test-tls");
    static const tls_material material = make_tls_material(dir.path());
    return material;
}

}  // namespace corvanis::monitoring_modules::test_support
