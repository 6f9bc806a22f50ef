#include "host/http_endpoint.h"

#include <httplib.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <thread>

#include "host/errors.h"
#include "host/status_page.h"

namespace corvanis::monitoring_modules::host {

namespace {

// Scrapers and a few browsers; more would only compete with the scans for the CPU.
constexpr std::size_t server_workers = 2;

void reply(httplib::Response& response, std::string body, const char* type) {
    response.set_header("Cache-Control", "no-store");
    response.set_content(std::move(body), type);
}

// Handlers run on the server's threads: nothing may escape them.
template <class Build>
httplib::Server::Handler guarded(Build build) {
    return [build](const httplib::Request&, httplib::Response& response) {
        try {
            build(response);
        } catch (const std::exception& e) {
            response.status = 500;
            response.set_content(std::string("tavo-probe: ") + e.what() + "\n", "text/plain");
        } catch (...) {
            response.status = 500;
            response.set_content("tavo-probe: unexpected failure\n", "text/plain");
        }
    };
}

}  // namespace

bool listen_address::loopback() const {
    return host == "localhost" || host == "::1" || host.rfind("127.", 0) == 0;
}

listen_address parse_listen_address(const std::string& text) {
    const auto fail = [&]() -> listen_address {
        throw host_error("--listen takes ADDR:PORT, [IPv6]:PORT or :PORT, not \"" + text + "\"",
                         exit_usage);
    };
    const auto colon = text.rfind(':');
    if (colon == std::string::npos) return fail();
    listen_address address;
    address.host = text.substr(0, colon);
    if (address.host.size() >= 2 && address.host.front() == '[' && address.host.back() == ']') {
        address.host = address.host.substr(1, address.host.size() - 2);
    } else if (address.host.find(':') != std::string::npos) {
        return fail();  // an IPv6 address needs brackets to tell it from the port
    }
    if (address.host.empty()) address.host = "127.0.0.1";
    const char* first = text.data() + colon + 1;
    const char* last = text.data() + text.size();
    const auto [end, ec] = std::from_chars(first, last, address.port);
    if (first == last || ec != std::errc() || end != last || address.port < 0 ||
        address.port > 65535) {
        return fail();
    }
    return address;
}

struct http_endpoint::impl {
    impl(const status_board& b, probe_identity p) : board(b), probe(std::move(p)) {}

    const status_board& board;
    probe_identity probe;
    httplib::Server server;
    std::thread thread;
    std::atomic<bool> done{false};  // the server thread has returned
    int port = 0;
};

http_endpoint::http_endpoint(const listen_address& address, const status_board& board,
                             probe_identity probe)
    : impl_(std::make_unique<impl>(board, std::move(probe))) {
    auto& server = impl_->server;
    server.new_task_queue = [] { return new httplib::ThreadPool(server_workers); };
    // Bounded waits, so a silent client holds a worker for seconds at most and a stop is quick.
    server.set_read_timeout(5, 0);
    server.set_write_timeout(5, 0);
    server.set_keep_alive_timeout(1);
    server.set_keep_alive_max_count(100);
    // Without the library's SO_REUSEPORT, so a second probe on the same address is refused
    // instead of silently taking turns with the first one.
    server.set_socket_options([](socket_t sock) {
        const int yes = 1;
        setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });

    auto* state = impl_.get();
    server.Get("/metrics", guarded([state](httplib::Response& response) {
                   std::string body;
                   render_metrics(state->board, state->probe, body);
                   reply(response, std::move(body), metrics_content_type);
               }));
    server.Get("/api/status", guarded([state](httplib::Response& response) {
                   reply(response, status_json(state->board, state->probe), "application/json");
               }));
    server.Get("/", guarded([state](httplib::Response& response) {
                   reply(response, status_page(status_json(state->board, state->probe)),
                         "text/html; charset=utf-8");
               }));

    errno = 0;
    const int bound = address.port == 0
                          ? server.bind_to_any_port(address.host)
                          : (server.bind_to_port(address.host, address.port) ? address.port : -1);
    if (bound < 0) {
        const std::string why = errno != 0 ? std::strerror(errno) : "not an address of this host";
        throw host_error("cannot listen on " + address.host + ":" + std::to_string(address.port) +
                         ": " + why);
    }
    impl_->port = bound;
    impl_->thread = std::thread([state] {
        state->server.listen_after_bind();
        state->done = true;
    });
}

http_endpoint::~http_endpoint() {
    // A stop before the thread has entered its accept loop is ignored, so repeat it until
    // the loop has ended; each round wakes the loop at once.
    while (!impl_->done) {
        impl_->server.stop();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    impl_->thread.join();
}

int http_endpoint::port() const {
    return impl_->port;
}

}  // namespace corvanis::monitoring_modules::host
