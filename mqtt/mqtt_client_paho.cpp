#include "mqtt/mqtt_client_paho.h"

#include <MQTTAsync.h>

#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <climits>

#include "libstringutils/random_string_generator.h"
#include "libtavohelper/module/service_container.h"
#include "mqtt/connection_probe.h"
#include "mqtt/exceptions.h"
#include "mqtt/paho_callbacks.h"
#include "mqtt/poll_pacer.h"

namespace corvanis::monitoring_modules::mqtt {

using liblog::severity;
using namespace std::chrono_literals;

namespace {

std::atomic<std::uint32_t> live_clients{0};

// A failure of the given type with a message that names the broker: callers tell failures
// apart by type, operators by the message.
template <class Failure>
std::function<std::exception_ptr()> typed_failure(libi18n::i18n_msg message) {
    return [message = std::move(message)] { return std::make_exception_ptr(Failure(message)); };
}

int clamp_to_int(std::uint64_t value) {
    return static_cast<int>(std::min<std::uint64_t>(value, INT_MAX));
}

// Longer waits than a day mean "very long" to an operator, and keep every deadline built on
// them far from the clock's limits. 0 is the shortest wait that works: one second.
std::chrono::seconds clamp_timeout(std::uint64_t seconds) {
    return std::chrono::seconds(std::clamp<std::uint64_t>(seconds, 1, 86400));
}

// Room for the library's own connect timeout to fire before ours does.
constexpr auto first_attempt_margin = 5s;
// Teardown's budget for unsubscribing and disconnecting, whatever the broker does.
constexpr auto teardown_budget = 1500ms;
// How long a request waits while an earlier one has timed out and nothing came since.
constexpr auto unresponsive_probe = 200ms;
// A shorter keep-alive risks false losses between the library's 1 s receive rounds.
constexpr std::uint64_t min_keep_alive = 2;

// The library's failure code for a subscription the broker refused (its SUBACK return code).
constexpr int subscription_refused_code = 0x80;
// The most a failed connect's explanation adds to it.
constexpr auto probe_budget = 3s;
// Enough of the TLS library's queue to name the reason.
constexpr std::size_t max_tls_errors = 512;

// The reason of one line of the TLS library's error queue
// ("<thread>:error:<code>:<library>:<function>:<reason>:<file>:<line>:<data>"), with its data.
std::string tls_reason(const std::string& line) {
    std::vector<std::string> fields;
    std::size_t start = 0;
    for (std::size_t colon;
         (colon = line.find(':', start)) != std::string::npos && fields.size() < 8;
         start = colon + 1) {
        fields.push_back(line.substr(start, colon - start));
    }
    if (fields.size() < 8 || fields[1] != "error" || fields[5].empty()) {
        return line;
    }
    const std::string data = line.substr(start);
    return fields[5] + (data.empty() ? "" : " (" + data + ")");
}

bool resolves(const std::string& host) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int rc = ::getaddrinfo(host.c_str(), nullptr, &hints, &found);
    if (found != nullptr) ::freeaddrinfo(found);
    return rc == 0;
}

// The reconnect thread's requests end at once when destruction starts.
thread_local bool on_reconnect_thread = false;

std::string failure_text(const std::exception_ptr& failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& e) {
        return e.what();
    } catch (...) {
        return "unknown failure";
    }
}

std::string text_or_empty(const char* text) {
    return text == nullptr ? std::string() : text;
}

}  // namespace

struct mqtt_client_paho::connect_options {
    MQTTAsync_connectOptions connect = MQTTAsync_connectOptions_initializer;
    MQTTAsync_SSLOptions ssl = MQTTAsync_SSLOptions_initializer;
    char* server_uris[1] = {nullptr};
};

// Outcome of one asynchronous request, shared by the waiting caller and the library's handler.
struct paho_request_state {
    std::mutex mutex;
    std::condition_variable completed;
    bool done = false;  // guarded by mutex
    int code = 0;       // guarded by mutex
    std::string text;   // guarded by mutex
};

// ---------------------------------------------------------------------------------------------
// Construction and teardown

mqtt_client_paho::mqtt_client_paho(
    mqtt_client_settings settings,
    std::weak_ptr<libtavohelper::module::service_container> container, reconnect_options reconnect)
    : settings_(std::move(settings)),
      container_(std::move(container)),
      reconnect_(std::move(reconnect)),
      log_(std::make_shared<liblog::multiplex_logger>()),
      options_(std::make_unique<connect_options>()),
      connect_timeout_(clamp_timeout(settings_.connection.connect_timeout)),
      automatic_reconnect_(settings_.session.automatic_reconnect) {
    if (reconnect_.backoff.empty()) {
        reconnect_.backoff = reconnect_options{}.backoff;
    }
    log_->add(settings_.logger);
    settings_.logger.reset();  // held weakly by the fan-out from here on, like every target
    auto services = container_.lock();
    if (services) {
        log_->add(services->find_instance<liblog::log_interface>());
    }
    client_id_ = settings_.connection.client_id;
    if (settings_.connection.client_id_suffix_length != 0 && services) {
        client_id_ +=
            services->get_or_create<libstringutils::random_string_generator_interface>()->generate(
                settings_.connection.client_id_suffix_length);
    }
    services.reset();
    server_uri_ = (settings_.tls.use_tls ? "ssl://" : "tcp://") + settings_.connection.host + ":" +
                  std::to_string(settings_.connection.port);

    try {
        MQTTAsync_createOptions create = MQTTAsync_createOptions_initializer;
        create.MQTTVersion = MQTTVERSION_3_1_1;
        log(severity::info, "Working with MQTT version: " + std::to_string(create.MQTTVersion));
        log(severity::debug, "Initializing handle with options: server_uri: " + server_uri_ +
                                 " with client_id: " + client_id_);
        check_return_code(
            MQTTAsync_createWithOptions(&handle_, server_uri_.c_str(), client_id_.c_str(),
                                        MQTTCLIENT_PERSISTENCE_NONE, nullptr, &create),
            "in MQTTAsync_createWithOptions");
        check_return_code(MQTTAsync_setCallbacks(handle_, this, &paho_callbacks::on_connection_lost,
                                                 &paho_callbacks::on_message_arrived,
                                                 &paho_callbacks::on_delivery_complete),
                          "in MQTTAsync_setCallbacks");
        check_return_code(MQTTAsync_setConnected(handle_, this, &paho_callbacks::on_connected),
                          "in MQTTAsync_setConnected");
        configure_connect_options();
        configure_tls();

        log(severity::debug, "Start initial connect.");
        auto first_attempt = first_attempt_.get_future();
        const auto start = std::chrono::steady_clock::now();
        check_return_code(MQTTAsync_connect(handle_, &options_->connect),
                          "in method MQTTAsync_connect()");
        log(severity::debug, "Wait for initial connection attempt.");
        wait_for_first_attempt(first_attempt);
        connect_duration_ = std::chrono::duration_cast<std::chrono::milliseconds>(
                                std::chrono::steady_clock::now() - start)
                                .count();
        failure_maker raw;
        {
            std::lock_guard lock(reconnect_mutex_);
            raw = attempt_failure_;
        }
        try {
            first_attempt.get();
        } catch (...) {
            const auto failure = raw ? explain_failure(raw)() : std::current_exception();
            log(severity::error, "Initial connection attempt failed: " + failure_text(failure));
            std::rethrow_exception(failure);
        }
        if (raw) {
            // Made anyway; the reconnect thread may have recorded a newer failure by now.
            auto explained = explain_failure(raw);
            std::lock_guard lock(failure_mutex_);
            if (failure_serial_ == first_failure_serial_) last_failure_ = std::move(explained);
        }
    } catch (...) {
        shutdown();
        throw;
    }
    ++live_clients;
    counted_ = true;
}

void mqtt_client_paho::wait_for_first_attempt(std::future<void>& first_attempt) {
    // ---- the wait on the first attempt ----
    if (first_attempt.wait_for(connect_timeout_ + first_attempt_margin) ==
        std::future_status::ready) {
        return;
    }
    // ---- end of the wait on the first attempt ----
    // The library never decided: answer for it, so the caller is not held any longer.
    if (!first_attempt_pending_.exchange(false)) {
        return;  // decided just now
    }
    first_attempt_.set_exception(std::make_exception_ptr(
        exceptions::tcp_connection_timeout(messages::tcp_connection_timeout())));
}

void mqtt_client_paho::configure_connect_options() {
    auto& c = options_->connect;
    // Bounded by the connect timeout: a silent broker is noticed after about two keep-alives.
    const auto limit = std::max<std::uint64_t>(
        min_keep_alive, static_cast<std::uint64_t>(connect_timeout_.count()));
    const auto wanted = settings_.session.keep_alive_interval;
    c.keepAliveInterval = clamp_to_int(wanted == 0 ? limit : std::min(wanted, limit));
    c.cleansession = settings_.session.clean_session ? 1 : 0;
    c.maxInflight = 65535;
    c.connectTimeout = clamp_to_int(settings_.connection.connect_timeout);
    username_ = settings_.connection.username;
    password_ = settings_.connection.password.plain();
    c.username = username_.c_str();
    c.password = password_.c_str();
    c.retryInterval = 0;
    c.automaticReconnect = 0;  // our own reconnect thread does it, with its own back-off
    c.minRetryInterval = 1;
    c.maxRetryInterval = 60;
    // Explicit 3.1.1: the default retries a failed connect as 3.1, about 1 s per failure.
    c.MQTTVersion = MQTTVERSION_3_1_1;
    options_->server_uris[0] = server_uri_.data();
    c.serverURIcount = 1;
    c.serverURIs = options_->server_uris;
    c.ssl = &options_->ssl;
    c.onSuccess = &paho_callbacks::on_connect_success;
    c.onFailure = &paho_callbacks::on_connect_failure;
    c.context = this;
}

void mqtt_client_paho::configure_tls() {
    auto& ssl = options_->ssl;
    if (!settings_.tls.use_tls) {
        return;
    }
    log(severity::debug, "Using TLS");
    const auto& tls = settings_.tls;
    if (!tls.ca_certificate.empty()) {
        log(severity::debug, "Using CA certificate");
        ca_file_ = std::make_unique<private_file>(tls.ca_certificate);
        ssl.trustStore = ca_file_->path().c_str();
        ssl.enableServerCertAuth = 1;
        ssl.verify = 1;
    } else {
        log(severity::debug, "Do not verify server certificate ");
        ssl.enableServerCertAuth = 0;
        ssl.verify = 0;
    }
    if (!tls.client_certificate.empty()) {
        log(severity::debug, "Using client certificate");
        certificate_file_ = std::make_unique<private_file>(tls.client_certificate);
        ssl.keyStore = certificate_file_->path().c_str();
        if (!tls.client_key.empty()) {  // else the library reads the key from the keyStore
            key_file_ = std::make_unique<private_file>(tls.client_key);
            ssl.privateKey = key_file_->path().c_str();
        }
        // Always set, so an encrypted key without a password fails instead of prompting.
        key_password_ = tls.client_key_password.plain();
        ssl.privateKeyPassword = key_password_.c_str();
    }
    ssl.disableDefaultTrustStore = 1;
    ssl.ssl_error_cb = &paho_callbacks::on_ssl_error;
    ssl.ssl_error_context = this;
}

mqtt_client_paho::~mqtt_client_paho() {
    shutdown();
}

void mqtt_client_paho::shutdown() noexcept {
    teardown_deadline_ =
        (std::chrono::steady_clock::now() + teardown_budget).time_since_epoch().count();
    stopping_ = true;
    std::unique_ptr<std::thread> thread;
    {
        std::lock_guard lock(reconnect_mutex_);
        automatic_reconnect_ = false;
        thread = std::move(reconnect_thread_);
    }
    reconnect_wake_.notify_all();
    if (thread && thread->joinable()) {
        thread->join();
    }
    if (reconnect_in_progress_) {
        log(severity::warning,
            "Inconsistency detected: reconnect still counted as in progress, but thread has been "
            "joined");
    }
    if (handle_ == nullptr) {
        return;
    }
    if (MQTTAsync_isConnected(handle_) != 0) {
        try {
            unsubscribe_all();
        } catch (const std::exception& e) {
            log(severity::warning, std::string("Exception in unsubscribe_all: ") + e.what());
        } catch (...) {
            log(severity::warning, "Undefined exception in unsubscribe_all");
        }
        log(severity::info, "Disconnect from broker.");
        MQTTAsync_disconnectOptions disconnect = MQTTAsync_disconnectOptions_initializer;
        disconnect.struct_version = 1;
        disconnect.timeout = 0;
        MQTTAsync_disconnect(handle_, &disconnect);  // the result does not matter here
        // Let the queued DISCONNECT reach the broker before the handle goes.
        for (int i = 0; i < 100 && MQTTAsync_isConnected(handle_) != 0; ++i) {
            std::this_thread::sleep_for(5ms);
        }
    }
    log(severity::notice, "Cleaning up.");
    {
        std::unique_lock lock(callback_mutex_);
        closing_ = true;
        callbacks_done_.wait(lock, [this] { return callbacks_running_ == 0; });
    }
    MQTTAsync_destroy(&handle_);
    if (counted_) {
        --live_clients;
    }
}

// ---------------------------------------------------------------------------------------------
// Queries and logging

std::uint32_t mqtt_client_paho::get_active_client_count() const {
    return live_clients;
}

std::int64_t mqtt_client_paho::get_connect_duration() const {
    return connect_duration_;
}

bool mqtt_client_paho::is_connected() const {
    return handle_ != nullptr && MQTTAsync_isConnected(handle_) != 0;
}

mqtt_client_paho::failure_maker mqtt_client_paho::explain_failure(
    const failure_maker& failure) const {
    const std::string address =
        settings_.connection.host + ":" + std::to_string(settings_.connection.port);
    try {
        std::rethrow_exception(failure());
    } catch (const exceptions::tcp_connection_timeout&) {
        return typed_failure<exceptions::tcp_connection_timeout>(
            messages::no_answer_at()(address, std::to_string(connect_timeout_.count())));
    } catch (const exceptions::tcp_tls_connect_failure&) {
    } catch (const exceptions::bad_username_or_password&) {
        return typed_failure<exceptions::bad_username_or_password>(
            messages::login_refused_at()(address));
    } catch (const exceptions::not_authorized&) {
        return typed_failure<exceptions::not_authorized>(messages::login_refused_at()(address));
    } catch (const exceptions::unacceptable_protocol_version& e) {
        return typed_failure<exceptions::unacceptable_protocol_version>(
            messages::connection_rejected_at()(address, e.what()));
    } catch (const exceptions::identifier_rejected& e) {
        return typed_failure<exceptions::identifier_rejected>(
            messages::connection_rejected_at()(address, e.what()));
    } catch (const exceptions::server_unavailable& e) {
        return typed_failure<exceptions::server_unavailable>(
            messages::connection_rejected_at()(address, e.what()));
    } catch (const exceptions::client_failure& e) {
        // A typed library failure already says what it is.
        if (typeid(e) != typeid(exceptions::client_failure)) return failure;
    } catch (...) {
        return failure;
    }
    if (!resolves(settings_.connection.host)) {
        return typed_failure<exceptions::host_not_found>(
            messages::host_not_found()(settings_.connection.host));
    }
    const auto connect_failure = typed_failure<exceptions::tcp_tls_connect_failure>;
    // The library's text rarely says why: a connection of our own, with the same material, does.
    const auto& tls = settings_.tls;
    const auto finding = probe_connection(
        {settings_.connection.host, settings_.connection.port, tls.use_tls, tls.ca_certificate,
         tls.client_certificate, tls.client_key, tls.client_key_password.plain()},
        std::min<std::chrono::milliseconds>(connect_timeout_, probe_budget),
        [this] { return stopping_.load(); });
    switch (finding.what) {
        case probe_finding::kind::refused:
            return connect_failure(messages::connection_refused_at()(address));
        case probe_finding::kind::unreachable:
            return connect_failure(messages::connection_failed_at()(address, finding.reason));
        case probe_finding::kind::tls:
            return connect_failure(messages::tls_failure_at()(address, finding.reason));
        case probe_finding::kind::tls_expected:
            return connect_failure(messages::tls_expected_at()(address));
        case probe_finding::kind::none:
            break;
    }
    std::string tls_errors;
    {
        std::lock_guard lock(failure_mutex_);
        tls_errors = tls_errors_;
    }
    if (tls.use_tls && !tls_errors.empty()) {
        return connect_failure(messages::tls_failure_at()(address, tls_errors));
    }
    return failure;
}

void mqtt_client_paho::note_tls_error(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    if (text.empty()) return;
    log(severity::error, "TLS error: " + text);
    const auto reason = tls_reason(text);
    std::lock_guard lock(failure_mutex_);
    if (tls_errors_.size() < max_tls_errors && tls_errors_.find(reason) == std::string::npos) {
        tls_errors_ += (tls_errors_.empty() ? "" : "; ") + reason;
    }
}

std::exception_ptr mqtt_client_paho::last_failure() const {
    std::lock_guard lock(failure_mutex_);
    return last_failure_ ? last_failure_() : nullptr;
}

std::uint64_t mqtt_client_paho::record_failure(failure_maker failure) {
    std::lock_guard lock(failure_mutex_);
    last_failure_ = std::move(failure);
    return ++failure_serial_;
}

std::string mqtt_client_paho::get_client_id() const {
    return client_id_;
}

std::uint64_t mqtt_client_paho::get_subscribed_topic_count() const {
    std::shared_lock lock(index_mutex_);
    return index_.size();
}

void mqtt_client_paho::add_logger(const std::shared_ptr<liblog::log_interface>& logger,
                                  int threshold) {
    log_->add(logger, threshold);
}

void mqtt_client_paho::remove_logger(const std::shared_ptr<liblog::log_interface>& logger) {
    log_->remove(logger);
}

void mqtt_client_paho::log(severity level, const std::string& text) const {
    log_->log(level, "MQTT Client - " + client_id_ + ": " + text);
}

void mqtt_client_paho::check_return_code(int code, const std::string& context,
                                         std::string_view library_text) const {
    log(severity::debug, "Return code = " + std::to_string(code) + " " + context);
    if (code == MQTTASYNC_SUCCESS) {
        return;
    }
    log(severity::error, "Error: " + context);
    std::rethrow_exception(
        exceptions::map_failure(code, library_text.empty() ? context : library_text));
}

// ---------------------------------------------------------------------------------------------
// Connection handlers and the reconnect thread

bool mqtt_client_paho::enter_callback() {
    std::lock_guard lock(callback_mutex_);
    if (closing_) {
        return false;
    }
    ++callbacks_running_;
    return true;
}

void mqtt_client_paho::leave_callback() {
    std::lock_guard lock(callback_mutex_);
    if (--callbacks_running_ == 0) {
        callbacks_done_.notify_all();  // under the lock: the waiter may destroy us once woken
    }
}

void mqtt_client_paho::handle_connect_success(int mqtt_version) {
    broker_unresponsive_ = false;
    const bool first = first_attempt_pending_.exchange(false);
    try {
        log(severity::notice,
            "Connected to: " + server_uri_ + " - MQTT Version: " + std::to_string(mqtt_version));
    } catch (...) {
        if (first) first_attempt_.set_value();  // the constructor must not wait forever
        throw;
    }
    if (first) {
        first_attempt_.set_value();
        return;
    }
    {
        std::lock_guard lock(reconnect_mutex_);
        attempt_decided_ = true;
        attempt_succeeded_ = true;
    }
    reconnect_wake_.notify_all();
}

void mqtt_client_paho::handle_connected(std::string_view cause) {
    {
        std::lock_guard lock(reconnect_mutex_);
        reconnect_wake_requested_ = true;
    }
    reconnect_wake_.notify_all();
    log(severity::info, "Connection established: " + std::string(cause));
}

void mqtt_client_paho::handle_connect_failure(int code, std::string_view text) {
    failure_maker failure = [code, text = std::string(text)] {
        return exceptions::map_failure(code, text);
    };
    const bool first = first_attempt_pending_.exchange(false);
    {
        // Explained and recorded off the library's thread: by the reconnect thread, or by the
        // constructor for the first attempt.
        std::lock_guard lock(reconnect_mutex_);
        attempt_failure_ = failure;
        attempt_decided_ = !first;
        attempt_succeeded_ = false;
    }
    if (!first) {
        reconnect_wake_.notify_all();
        return;
    }
    if (automatic_reconnect_) {
        // Made anyway: the sensor comes up, reports this failure and waits for the broker.
        first_failure_serial_ = record_failure(failure);
        try {
            start_reconnect_thread();
        } catch (...) {
            first_attempt_.set_exception(std::current_exception());
            return;
        }
        first_attempt_.set_value();
    } else {
        first_attempt_.set_exception(failure());
    }
}

void mqtt_client_paho::handle_connection_lost(std::string_view cause) {
    record_failure([] {
        return std::make_exception_ptr(exceptions::connection_lost(messages::connection_lost()));
    });
    log(severity::info,
        "Connection lost" + (cause.empty() ? std::string() : " - Cause: " + std::string(cause)));
    if (automatic_reconnect_) {
        start_reconnect_thread();
    }
}

void mqtt_client_paho::start_reconnect_thread() {
    std::lock_guard lock(reconnect_mutex_);
    if (!automatic_reconnect_) {
        return;  // being destroyed
    }
    if (reconnect_in_progress_.exchange(true)) {
        // The running reconnect checks this before it ends, so the loss is not dropped.
        loss_pending_ = true;
        log(severity::debug, "Reconnect already in progress.");
        return;
    }
    loss_pending_ = false;
    std::unique_ptr<std::thread> previous;
    try {
        previous = std::exchange(reconnect_thread_, std::make_unique<std::thread>(
                                                        &mqtt_client_paho::do_reconnect, this));
    } catch (...) {
        reconnect_in_progress_ = false;
        throw;
    }
    // It has already given up reconnect_in_progress_, its last step.
    if (previous && previous->joinable()) {
        previous->join();
    }
}

bool mqtt_client_paho::wait_backoff(std::chrono::milliseconds wait) {
    if (reconnect_.on_backoff) {
        reconnect_.on_backoff(wait);
    }
    std::unique_lock lock(reconnect_mutex_);
    reconnect_wake_requested_ = false;  // a connect before the wait must not skip it
    reconnect_wake_.wait_for(lock, wait,
                             [this] { return !automatic_reconnect_ || reconnect_wake_requested_; });
    return automatic_reconnect_;  // false: destruction woke us
}

bool mqtt_client_paho::reconnect_once() {
    {
        std::lock_guard lock(reconnect_mutex_);
        loss_pending_ = false;  // this pass starts after it
        attempt_decided_ = false;
        reconnect_wake_requested_ = false;
    }
    if (!is_connected()) {
        {
            std::lock_guard lock(failure_mutex_);
            tls_errors_.clear();
        }
        // A fresh connect each time: the library forgets the handlers of an earlier connect
        // once it is decided, so reconnecting through it would never report an outcome.
        check_return_code(MQTTAsync_connect(handle_, &options_->connect),
                          "in method MQTTAsync_connect()");
        std::unique_lock lock(reconnect_mutex_);
        const bool decided =
            reconnect_wake_.wait_for(lock, connect_timeout_ + first_attempt_margin,
                                     [this] { return !automatic_reconnect_ || attempt_decided_; });
        if (!automatic_reconnect_) {
            return false;
        }
        if (!decided) {
            throw exceptions::tcp_connection_timeout(messages::tcp_connection_timeout());
        }
        if (!attempt_succeeded_) {
            const auto raw = attempt_failure_;
            lock.unlock();
            auto failure = explain_failure(raw);
            log(severity::warning, "Connection attempt failed: " + failure_text(failure()));
            record_failure(std::move(failure));
            return false;
        }
    }
    try {
        resubscribe_all();
    } catch (...) {
        subscriptions_missing_ = true;
        throw;
    }
    subscriptions_missing_ = false;
    const bool connected = is_connected();  // not under our lock: the library's may be held
    std::lock_guard lock(reconnect_mutex_);
    return connected && !loss_pending_;
}

void mqtt_client_paho::do_reconnect() {
    on_reconnect_thread = true;
    log(severity::info, "Start reconnecting ...");
    std::size_t index = 0;
    while (automatic_reconnect_) {
        try {
            if (reconnect_once()) {
                std::lock_guard lock(reconnect_mutex_);
                if (!loss_pending_) {
                    reconnect_in_progress_ = false;
                    return;
                }
            }
        } catch (const libi18n::i18n_exception& e) {
            // Kept by its message: the caught object stays on this thread.
            record_failure([message = e.message()] {
                return std::make_exception_ptr(exceptions::client_failure(message));
            });
            log(severity::warning, std::string("Reconnect failed: ") + e.what());
        } catch (const std::exception& e) {
            log(severity::warning, std::string("Reconnect failed: ") + e.what());
        } catch (...) {
            log(severity::warning, "Reconnect failed: undefined exception");
        }
        if (!automatic_reconnect_ || !wait_backoff(reconnect_.backoff[index])) {
            break;  // destruction woke us: no re-subscription for a client about to go
        }
        index = std::min(index + 1, reconnect_.backoff.size() - 1);
    }
    reconnect_in_progress_ = false;
}

// ---------------------------------------------------------------------------------------------
// Requests: subscribe, unsubscribe, publish

std::chrono::milliseconds mqtt_client_paho::request_wait() const {
    std::chrono::milliseconds wait = broker_unresponsive_
                                         ? std::chrono::milliseconds(unresponsive_probe)
                                         : std::chrono::milliseconds(connect_timeout_);
    if (const auto deadline = teardown_deadline_.load(); deadline != 0) {
        const auto left =
            std::chrono::steady_clock::time_point(std::chrono::steady_clock::duration(deadline)) -
            std::chrono::steady_clock::now();
        wait =
            std::min(wait, std::max(std::chrono::milliseconds(0),
                                    std::chrono::duration_cast<std::chrono::milliseconds>(left)));
    }
    return wait;
}

void mqtt_client_paho::synchronize_call(int token, paho_request_state& request,
                                        const std::string& what) {
    auto deadline = std::chrono::steady_clock::now() + request_wait();
    int code = MQTTASYNC_SUCCESS;
    std::string text;
    bool done = false;
    for (int slice = 1; !done; ++slice) {
        {
            // Short slices, so that teardown starting meanwhile shortens this wait.
            std::unique_lock lock(request.mutex);
            const auto until = std::min(deadline, std::chrono::steady_clock::now() + 100ms);
            done = request.completed.wait_until(lock, until, [&] { return request.done; });
            if (done) {
                code = request.code;
                text = request.text;
                break;
            }
        }
        if (stopping_) {
            deadline = std::min(deadline, std::chrono::steady_clock::now() + request_wait());
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            broker_unresponsive_ = true;
            log(severity::error, "Error: no answer from " + server_uri_ + " to " + what);
            throw exceptions::timeout(
                messages::timeout()("No answer from " + server_uri_ + " to " + what + "."));
        }
        if (slice % 10 == 0) {
            log(severity::debug, "Waiting for async complete of token: " + std::to_string(token));
        }
        // Checked without the request's lock: the library calls our handlers holding its own.
        if (!automatic_reconnect_ && (on_reconnect_thread || !is_connected())) {
            code = MQTTASYNC_DISCONNECTED;
            break;
        }
    }
    if (done) {
        broker_unresponsive_ = false;
    }
    check_return_code(code, "in method in synchronize_call()", text);
}

namespace {

// Fills the response options of one request; the handlers free the context they are given.
struct request_context {
    MQTTAsync_responseOptions options = MQTTAsync_responseOptions_initializer;
    std::unique_ptr<std::shared_ptr<void>> holder;

    explicit request_context(std::shared_ptr<void> state)
        : holder(std::make_unique<std::shared_ptr<void>>(std::move(state))) {
        options.onSuccess = &paho_callbacks::on_request_success;
        options.onFailure = &paho_callbacks::on_request_failure;
        options.context = holder.get();
    }
    // After the library accepted the request, exactly one handler frees the holder.
    void accepted(int rc) {
        if (rc == MQTTASYNC_SUCCESS) {
            static_cast<void>(holder.release());
        }
    }
};

}  // namespace

void mqtt_client_paho::subscribe_at_broker(const std::string& filter,
                                           std::unique_lock<std::recursive_mutex>& registry) {
    auto state = std::make_shared<paho_request_state>();
    request_context request(state);
    const int rc = MQTTAsync_subscribe(handle_, filter.c_str(), 2, &request.options);
    request.accepted(rc);
    check_return_code(rc, "in method MQTTAsync_subscribe()");
    // Requested in the order of the registry's edits; answered without holding it, so that
    // other filters' requests go out meanwhile.
    registry.unlock();
    try {
        synchronize_call(request.options.token, *state, "subscribe to '" + filter + "'");
    } catch (const exceptions::client_failure&) {
        std::lock_guard lock(state->mutex);
        if (!state->done || state->code != subscription_refused_code) throw;
        log(severity::error,
            "Error: " + server_uri_ + " refused the subscription to '" + filter + "'");
        throw exceptions::subscription_refused(messages::subscription_refused()(
            settings_.connection.host + ":" + std::to_string(settings_.connection.port), filter));
    }
}

void mqtt_client_paho::unsubscribe_at_broker(const std::string& filter,
                                             std::unique_lock<std::recursive_mutex>& registry) {
    auto state = std::make_shared<paho_request_state>();
    request_context request(state);
    const int rc = MQTTAsync_unsubscribe(handle_, filter.c_str(), &request.options);
    request.accepted(rc);
    check_return_code(rc, "in method MQTTAsync_unsubscribe()");
    registry.unlock();
    synchronize_call(request.options.token, *state, "unsubscribe from '" + filter + "'");
}

void mqtt_client_paho::subscribe(
    const std::shared_ptr<topic_subscription_interface>& subscription) {
    if (!subscription) {
        return;
    }
    std::unique_lock registry(registry_mutex_);
    const std::string filter = subscription->get_topic_filter();
    bool added = false;
    {
        // Registered before the broker request, so that retained messages sent right after the
        // broker's acknowledgement already find it.
        std::unique_lock lock(index_mutex_);
        auto& entry = index_.insert(filter);
        const bool present =
            std::any_of(entry.subscriptions.begin(), entry.subscriptions.end(),
                        [&](const auto& weak) { return weak.lock() == subscription; });
        if (!present) {
            entry.subscriptions.push_back(subscription);
            added = true;
        }
    }
    if (!is_connected()) {
        log(severity::info, "Registered subscription to '" + filter + "'");
        return;
    }
    try {
        subscribe_at_broker(filter, registry);
    } catch (...) {
        // Other subscribers of the filter may have come or gone during the wait: the entry
        // goes only when no one is left.
        std::unique_lock lock(index_mutex_);
        if (auto* entry = index_.find(filter); entry != nullptr && added) {
            std::erase_if(entry->subscriptions,
                          [&](const auto& weak) { return weak.lock() == subscription; });
            if (entry->subscriptions.empty()) {
                index_.erase(filter);
            }
        }
        throw;
    }
    log(severity::info, "Subscribed to '" + filter + "'");
}

void mqtt_client_paho::unsubscribe(
    const std::shared_ptr<topic_subscription_interface>& subscription) {
    if (!subscription) {
        return;
    }
    std::unique_lock registry(registry_mutex_);
    const std::string filter = subscription->get_topic_filter();
    log(severity::info, "Unsubscribe from '" + filter + "'");
    bool known = false;
    bool now_empty = false;
    std::size_t expired = 0;
    {
        std::unique_lock lock(index_mutex_);
        if (auto* entry = index_.find(filter)) {
            known = true;
            std::erase_if(entry->subscriptions, [&](const auto& weak) {
                const auto live = weak.lock();
                expired += live ? 0 : 1;
                return !live || live == subscription;
            });
            now_empty = entry->subscriptions.empty();
            if (now_empty) {
                index_.erase(filter);
            }
        }
    }
    for (std::size_t i = 0; i < expired; ++i) {
        log(severity::warning,
            "Found unreferenced weak_ptr during unsubscribe for topic: " + filter);
    }
    if (!known) {
        return;
    }
    log(severity::info, "Deleted subscription for '" + filter + "'");
    if (now_empty && is_connected()) {
        unsubscribe_at_broker(filter, registry);
        log(severity::info, "Unsubscribed topic '" + filter + "'");
    }
}

std::vector<std::shared_ptr<topic_subscription_interface>> mqtt_client_paho::live_subscriptions(
    const std::string& expired_line) {
    std::vector<std::shared_ptr<topic_subscription_interface>> live;
    std::vector<std::string> expired;
    {
        std::shared_lock lock(index_mutex_);
        index_.for_each([&](const topic_filter_index::entry& entry) {
            for (const auto& weak : entry.subscriptions) {
                if (auto subscription = weak.lock()) {
                    live.push_back(std::move(subscription));
                } else {
                    expired.push_back(entry.filter);
                }
            }
        });
    }
    for (const auto& filter : expired) {
        log(severity::warning, expired_line + filter);
    }
    return live;
}

void mqtt_client_paho::resubscribe_all() {
    std::lock_guard registry(registry_mutex_);
    for (const auto& subscription :
         live_subscriptions("Found unreferenced weak_ptr during subscribe for topic: ")) {
        subscribe(subscription);
    }
}

void mqtt_client_paho::unsubscribe_all() {
    std::lock_guard registry(registry_mutex_);
    for (const auto& subscription :
         live_subscriptions("Found unreferenced weak_ptr during unsubscribe_all for topic: ")) {
        unsubscribe(subscription);
    }
}

void mqtt_client_paho::publish(const std::string& topic, const std::string& payload,
                               const quality_of_service& qos, bool retained) {
    if (!is_connected()) {
        throw exceptions::could_not_publish_not_connected(
            messages::could_not_publish_not_connected()());
    }
    if (payload.size() > max_payload_size) {
        throw exceptions::message_too_long(messages::message_too_long()());
    }
    log(severity::debug, "Publish message on: '" + topic + "'");
    MQTTAsync_message message = MQTTAsync_message_initializer;
    message.payload = const_cast<char*>(payload.data());  // the library copies it
    message.payloadlen = static_cast<int>(payload.size());
    message.qos = static_cast<int>(qos);
    message.retained = retained ? 1 : 0;
    auto state = std::make_shared<paho_request_state>();
    request_context request(state);
    const int rc = MQTTAsync_sendMessage(handle_, topic.c_str(), &message, &request.options);
    request.accepted(rc);
    check_return_code(rc, "in method MQTTAsync_sendMessage()");
    synchronize_call(request.options.token, *state, "publish on '" + topic + "'");
}

// ---------------------------------------------------------------------------------------------
// Message dispatch

void mqtt_client_paho::on_message_arrived(const std::shared_ptr<const received_message>& message) {
    broker_unresponsive_ = false;
    log(severity::debug, "Message received on topic: " + message->topic);
    struct target {
        std::shared_ptr<topic_subscription_interface> subscription;
        bool needs_check;
    };
    // Reused per library thread; dispatch never nests on one thread.
    thread_local std::vector<target> targets;
    struct clear_on_exit {
        std::vector<target>& v;
        ~clear_on_exit() { v.clear(); }
    } clear{targets};
    std::vector<std::string> expired;
    {
        std::shared_lock lock(index_mutex_);
        index_.match(message->topic, [&](const topic_filter_index::entry& entry) {
            for (const auto& weak : entry.subscriptions) {
                if (auto subscription = weak.lock()) {
                    targets.push_back({std::move(subscription), entry.needs_check});
                } else {
                    expired.push_back(entry.filter);
                }
            }
        });
    }
    for (const auto& filter : expired) {
        log(severity::warning, "Found weak pointer without reference for topic: " + filter);
    }
    try {
        for (const auto& t : targets) {
            if (!t.needs_check || t.subscription->matches(message->topic)) {
                t.subscription->receive(message);
            }
        }
    } catch (const std::exception& e) {
        log(severity::warning, std::string("Exception in on_message_arrived: ") + e.what());
    } catch (...) {
        log(severity::warning, "Undefined exception in on_message_arrived");
    }
    if (!expired.empty()) {
        prune_expired(expired);
    }
}

void mqtt_client_paho::prune_expired(const std::vector<std::string>& filters) {
    std::vector<std::string> removed;
    {
        std::unique_lock lock(index_mutex_);
        for (const auto& filter : filters) {
            if (auto* entry = index_.find(filter)) {
                std::erase_if(entry->subscriptions, [&](const auto& weak) {
                    const bool gone = weak.expired();
                    if (gone) removed.push_back(filter);
                    return gone;
                });
            }
        }
    }
    for (const auto& filter : removed) {
        log(severity::debug, "Removing unreferenced weak_ptr for topic: " + filter);
    }
}

// ---------------------------------------------------------------------------------------------
// Trampolines. Each catches everything: a throw on a library thread would end the process.

// Admits one handler unless the client is being destroyed, which then waits for it.
class callback_scope {
  public:
    explicit callback_scope(void* context)
        : client_(static_cast<mqtt_client_paho*>(context)),
          entered_(client_ != nullptr && client_->enter_callback()) {}
    ~callback_scope() {
        if (entered_) client_->leave_callback();
    }
    callback_scope(const callback_scope&) = delete;
    callback_scope& operator=(const callback_scope&) = delete;

    // Runs body(client) when admitted and logs what escapes it as "Exception in <where>: ".
    template <class Body>
    void run(const char* where, Body&& body) noexcept {
        if (!entered_) return;
        try {
            body(*client_);
        } catch (const std::exception& e) {
            log_escaped(std::string("Exception in ") + where + ": " + e.what());
        } catch (...) {
            log_escaped(std::string("Undefined exception in ") + where);
        }
    }

  private:
    void log_escaped(const std::string& text) noexcept {
        try {
            client_->log(severity::warning, text);
        } catch (...) {
        }
    }
    mqtt_client_paho* client_;
    bool entered_;
};

namespace {

struct topic_deleter {
    void operator()(char* topic) const noexcept { MQTTAsync_free(topic); }
};
struct message_deleter {
    void operator()(MQTTAsync_message* message) const noexcept { MQTTAsync_freeMessage(&message); }
};

void complete_request(void* context, int code, const char* text) noexcept {
    // Frees the holder that start of the request handed to the library.
    std::unique_ptr<std::shared_ptr<void>> holder(static_cast<std::shared_ptr<void>*>(context));
    if (!holder) return;
    auto& state = *static_cast<paho_request_state*>(holder->get());
    try {
        std::lock_guard lock(state.mutex);
        state.done = true;
        state.code = code;
        state.text = text_or_empty(text);
        state.completed.notify_all();
    } catch (...) {
    }
}

}  // namespace

void paho_callbacks::on_connect_success(void* context, MQTTAsync_successData* response) noexcept {
    callback_scope(context).run("on_connect_success", [&](mqtt_client_paho& client) {
        client.handle_connect_success(response != nullptr ? response->alt.connect.MQTTVersion : 0);
    });
}

void paho_callbacks::on_connect_failure(void* context, MQTTAsync_failureData* response) noexcept {
    callback_scope(context).run("on_connect_failure", [&](mqtt_client_paho& client) {
        client.handle_connect_failure(
            response != nullptr ? response->code : MQTTASYNC_FAILURE,
            text_or_empty(response != nullptr ? response->message : nullptr));
    });
}

void paho_callbacks::on_connection_lost(void* context, char* cause) noexcept {
    callback_scope(context).run("on_connection_lost", [&](mqtt_client_paho& client) {
        client.handle_connection_lost(text_or_empty(cause));
    });
}

void paho_callbacks::on_connected(void* context, char* cause) noexcept {
    callback_scope(context).run("on_connected", [&](mqtt_client_paho& client) {
        client.handle_connected(text_or_empty(cause));
    });
}

int paho_callbacks::on_message_arrived(void* context, char* topic_name, int topic_length,
                                       MQTTAsync_message* message) noexcept {
    const std::unique_ptr<char, topic_deleter> topic_owner(topic_name);
    const std::unique_ptr<MQTTAsync_message, message_deleter> message_owner(message);
    callback_scope(context).run("on_message_arrived", [&](mqtt_client_paho& client) {
        auto received = std::make_shared<received_message>();
        if (topic_name != nullptr) {
            received->topic =
                topic_length == 0 ? std::string(topic_name) : std::string(topic_name, topic_length);
        }
        if (message != nullptr && message->payloadlen > 0) {
            const auto* bytes = static_cast<const char*>(message->payload);
            received->payload.assign(bytes, bytes + message->payloadlen);
        } else {
            client.log(severity::debug, "Received empty message on topic: " + received->topic);
        }
        received->arrival_time = std::chrono::system_clock::now();
        client.on_message_arrived(received);
    });
    return 1;
}

void paho_callbacks::on_delivery_complete(void* context, MQTTAsync_token token) noexcept {
    callback_scope(context).run("on_delivery_complete", [&](mqtt_client_paho& client) {
        client.log(severity::debug, "Message delivered with token: " + std::to_string(token));
    });
}

int paho_callbacks::on_ssl_error(const char* text, std::size_t length, void* context) noexcept {
    callback_scope(context).run("on_ssl_error", [&](mqtt_client_paho& client) {
        client.note_tls_error(text != nullptr ? std::string(text, length) : std::string());
    });
    return 1;  // go on with the next queued error
}

void paho_callbacks::on_request_success(void* context, MQTTAsync_successData*) noexcept {
    complete_request(context, MQTTASYNC_SUCCESS, nullptr);
}

void paho_callbacks::on_request_failure(void* context, MQTTAsync_failureData* response) noexcept {
    int code = response != nullptr ? response->code : MQTTASYNC_FAILURE;
    complete_request(context, code == MQTTASYNC_SUCCESS ? MQTTASYNC_FAILURE : code,
                     response != nullptr ? response->message : nullptr);
}

void paho_callbacks::dispatch(void* context,
                              const std::shared_ptr<const received_message>& message) {
    callback_scope(context).run("on_message_arrived", [&](mqtt_client_paho& client) {
        client.on_message_arrived(message);
    });
}

// ---------------------------------------------------------------------------------------------

std::function<std::unique_ptr<mqtt_client_interface>(mqtt_client_settings)> make_client_factory(
    std::weak_ptr<libtavohelper::module::service_container> container) {
    return [container = std::move(container)](mqtt_client_settings settings) {
        // The first attempt's time is the broker's only while the library's receive thread turns.
        const auto pacing = pace(container.lock());
        return std::unique_ptr<mqtt_client_interface>(
            std::make_unique<mqtt_client_paho>(std::move(settings), container));
    };
}

}  // namespace corvanis::monitoring_modules::mqtt
