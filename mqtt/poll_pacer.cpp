#include "mqtt/poll_pacer.h"

#include <MQTTAsync.h>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <random>

// Why this mechanism. All clients of a process share the library's one receive thread. It polls
// a snapshot of their sockets for up to a second, rests 100 ms after a round in which nothing was
// ready, and only picks up a new socket (or a finished TCP connect) when a round ends; there is no
// call that wakes it. A connection made beside an idle one therefore takes about 2.1 s, and a
// reply may sit through a rest. Every poll returns at once, though, when one of its sockets is
// readable. So the pacer keeps one extra client of the library connected to a responder of its
// own in this process, and while someone paces, the responder sends that client an unsolicited
// PINGRESP (2 bytes, which the library reads and drops) every half millisecond. Other clients'
// traffic and callbacks are untouched; while no one paces there is no traffic and the responder
// sleeps on a condition variable. Pacing through the broker itself works too, but costs broker
// traffic and publish rights, and changing how the library polls is not ours to do.
//
// The responder listens on 127.0.0.1, port 0, for one connection only: it answers the CONNECT
// that carries the pacer's random client id and closes the listener at once.

namespace corvanis::monitoring_modules::mqtt {

using namespace std::chrono_literals;

namespace {

constexpr auto link_wait = 3s;      // a first link beside idle clients takes ~2.1 s
constexpr auto accept_limit = 10s;  // the library's connect gives up after 5 s
constexpr auto ping_interval = 500us;
constexpr int connect_timeout_seconds = 5;
constexpr std::array<char, 2> pingresp = {'\xd0', '\x00'};
constexpr std::array<char, 4> connack = {'\x20', '\x02', '\x00', '\x00'};

std::string random_client_id() {
    static constexpr char digits[] = "0123456789abcdef";
    std::random_device device;
    std::uniform_int_distribution<int> pick(0, 15);
    std::string id = "pacer-";
    for (int i = 0; i < 20; ++i) id += digits[pick(device)];
    return id;
}

// Reads exactly size bytes before the deadline; false on end, error or time-out.
bool read_exactly(int fd, char* data, std::size_t size,
                  std::chrono::steady_clock::time_point deadline) {
    std::size_t got = 0;
    while (got < size) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) return false;
        pollfd p{fd, POLLIN, 0};
        if (::poll(&p, 1, static_cast<int>(left.count())) <= 0) continue;
        const auto n = ::recv(fd, data + got, size - got, MSG_DONTWAIT);
        if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR)) return false;
        if (n > 0) got += static_cast<std::size_t>(n);
    }
    return true;
}

bool send_all(int fd, const char* data, std::size_t size) {
    return ::send(fd, data, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size);
}

}  // namespace

struct poll_pacer::link {
    MQTTAsync handle = nullptr;
    std::string uri;
    std::string client_id;
    MQTTAsync_connectOptions options = MQTTAsync_connectOptions_initializer;
};

// The library's connect handlers; the pacer outlives them (see end_link).
struct pacer_callbacks {
    static void connected(void* context, MQTTAsync_successData*) noexcept {
        static_cast<poll_pacer*>(context)->decided(true);
    }
    static void failed(void* context, MQTTAsync_failureData*) noexcept {
        static_cast<poll_pacer*>(context)->decided(false);
    }
};

// ---------------------------------------------------------------------------------------------
// Pacing

poll_pacer::pacing::pacing(std::shared_ptr<poll_pacer> pacer) : pacer_(std::move(pacer)) {
    if (pacer_) pacer_->acquire();
}

poll_pacer::pacing::~pacing() {
    if (pacer_) pacer_->release();
}

poll_pacer::poll_pacer() = default;

poll_pacer::~poll_pacer() {
    std::lock_guard lifecycle(lifecycle_mutex_);
    end_link();
}

poll_pacer::pacing poll_pacer::pace() {
    auto self = weak_from_this().lock();
    if (!self) return {};
    try {
        {
            std::lock_guard lifecycle(lifecycle_mutex_);
            ensure_link();
        }
        pacing active(std::move(self));
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, link_wait, [this] { return state_ != link_state::connecting; });
        return active;
    } catch (...) {
        return {};  // unpaced: the times read are slower, never made up
    }
}

poll_pacer::pacing pace(
    const std::shared_ptr<libtavohelper::module::service_container>& container) {
    const auto pacer = container ? container->find_instance<poll_pacer>() : nullptr;
    return pacer ? pacer->pace() : poll_pacer::pacing{};
}

bool poll_pacer::linked() const {
    std::lock_guard lock(mutex_);
    return state_ == link_state::ready;
}

void poll_pacer::acquire() noexcept {
    {
        std::lock_guard lock(mutex_);
        ++waiters_;
    }
    changed_.notify_all();
}

void poll_pacer::release() noexcept {
    std::lock_guard lock(mutex_);
    --waiters_;
}

void poll_pacer::decided(bool connected) noexcept {
    std::lock_guard lock(mutex_);
    library_decided_ = true;
    if (!connected) {
        state_ = link_state::broken;
    } else if (state_ == link_state::connecting) {
        state_ = link_state::ready;
    }
    changed_.notify_all();  // under the lock: the pacer may go as soon as it is released
}

// ---------------------------------------------------------------------------------------------
// The link: one library client and the responder it talks to

void poll_pacer::ensure_link() {
    {
        std::lock_guard lock(mutex_);
        if (state_ == link_state::connecting || state_ == link_state::ready) return;
    }
    end_link();  // a broken one, or none

    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (listener < 0) return;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    socklen_t length = sizeof address;
    if (::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener, 1) != 0 ||
        ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        ::close(listener);
        return;
    }

    auto next = std::make_unique<link>();
    next->client_id = random_client_id();
    next->uri = "tcp://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    {
        std::lock_guard lock(mutex_);
        state_ = link_state::connecting;
        library_decided_ = false;
        stopping_ = false;
    }
    responder_ = std::thread(&poll_pacer::serve, this, listener, next->client_id);
    link_ = std::move(next);

    MQTTAsync_createOptions create = MQTTAsync_createOptions_initializer;
    create.MQTTVersion = MQTTVERSION_3_1_1;
    auto& options = link_->options;
    options.keepAliveInterval = 0;  // no PINGREQ: the link is silent while idle
    options.cleansession = 1;
    options.connectTimeout = connect_timeout_seconds;
    options.MQTTVersion = MQTTVERSION_3_1_1;
    options.onSuccess = &pacer_callbacks::connected;
    options.onFailure = &pacer_callbacks::failed;
    options.context = this;
    if (MQTTAsync_createWithOptions(&link_->handle, link_->uri.c_str(), link_->client_id.c_str(),
                                    MQTTCLIENT_PERSISTENCE_NONE, nullptr,
                                    &create) != MQTTASYNC_SUCCESS ||
        MQTTAsync_connect(link_->handle, &options) != MQTTASYNC_SUCCESS) {
        std::lock_guard lock(mutex_);
        library_decided_ = true;  // no handler will come
        state_ = link_state::broken;
        changed_.notify_all();
    }
}

void poll_pacer::end_link() noexcept {
    if (!link_) return;
    {
        // The connect handlers get this pacer as context: let a pending outcome arrive first.
        // The responder still answers, so the library decides within its connect timeout.
        std::unique_lock lock(mutex_);
        if (link_->handle != nullptr) {
            changed_.wait_for(lock, std::chrono::seconds(connect_timeout_seconds + 1),
                              [this] { return library_decided_; });
        }
    }
    if (link_->handle != nullptr) MQTTAsync_destroy(&link_->handle);
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    if (responder_.joinable()) responder_.join();
    link_.reset();
    std::lock_guard lock(mutex_);
    state_ = link_state::none;
    stopping_ = false;
}

// ---------------------------------------------------------------------------------------------
// The responder thread

void poll_pacer::serve(int listener, std::string expected_id) {
    int connection = -1;
    const auto deadline = std::chrono::steady_clock::now() + accept_limit;
    while (connection < 0 && std::chrono::steady_clock::now() < deadline) {
        {
            std::lock_guard lock(mutex_);
            if (stopping_) break;
        }
        pollfd p{listener, POLLIN, 0};
        if (::poll(&p, 1, 50) <= 0) continue;
        const int accepted = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (accepted < 0) continue;
        if (answer_connect(accepted, expected_id)) {
            connection = accepted;
        } else {
            ::close(accepted);  // not our client
        }
    }
    ::close(listener);  // one connection only
    if (connection >= 0) {
        send_pings(connection);
        ::close(connection);
    }
    std::lock_guard lock(mutex_);
    state_ = link_state::broken;
    changed_.notify_all();
}

// Reads one CONNECT and answers it when its client id is the expected one.
bool poll_pacer::answer_connect(int connection, const std::string& expected_id) {
    const auto deadline = std::chrono::steady_clock::now() + 2s;
    char byte = 0;
    if (!read_exactly(connection, &byte, 1, deadline) || byte != '\x10') return false;
    std::size_t remaining = 0;
    for (int shift = 0; shift < 28; shift += 7) {
        if (!read_exactly(connection, &byte, 1, deadline)) return false;
        remaining |= static_cast<std::size_t>(byte & 0x7f) << shift;
        if ((byte & 0x80) == 0) break;
    }
    if (remaining > 1024) return false;  // ours is small: name, flags and id only
    std::string body(remaining, '\0');
    if (!read_exactly(connection, body.data(), remaining, deadline)) return false;
    // Protocol name (2 + 4), level, flags, keep-alive (2), then the client id.
    constexpr std::size_t id_at = 10;
    if (body.size() < id_at + 2) return false;
    const auto id_length = static_cast<std::size_t>(static_cast<unsigned char>(body[id_at])) << 8 |
                           static_cast<unsigned char>(body[id_at + 1]);
    if (body.compare(id_at + 2, id_length, expected_id) != 0 || id_length != expected_id.size()) {
        return false;
    }
    return send_all(connection, connack.data(), connack.size());
}

void poll_pacer::send_pings(int connection) {
    std::array<char, 64> drain{};
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        if (waiters_ == 0) {
            changed_.wait(lock, [this] { return stopping_ || waiters_ > 0; });
            continue;
        }
        lock.unlock();
        const bool sent = ::send(connection, pingresp.data(), pingresp.size(),
                                 MSG_NOSIGNAL | MSG_DONTWAIT) >= 0 ||
                          errno == EAGAIN;  // the library is behind: the next one will do
        const auto got = ::recv(connection, drain.data(), drain.size(), MSG_DONTWAIT);
        const bool open = got > 0 || (got < 0 && (errno == EAGAIN || errno == EINTR));
        lock.lock();
        if (!sent || !open) return;  // the library closed the link
        changed_.wait_for(lock, ping_interval, [this] { return stopping_; });
    }
}

}  // namespace corvanis::monitoring_modules::mqtt
