#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "liblog/multiplex_logger.h"
#include "mqtt/mqtt_client_interface.h"
#include "mqtt/mqtt_client_settings.h"
#include "mqtt/private_file.h"
#include "mqtt/topic_filter_index.h"

namespace corvanis::monitoring_modules::libtavohelper::module {
class service_container;
}

namespace corvanis::monitoring_modules::mqtt {

struct paho_request_state;  // one request's completion, defined with the client

struct reconnect_options {
    // Waits after each failed reconnect sequence (connect, then every re-subscription); the
    // last one repeats until the client is connected with every subscription in place.
    std::vector<std::chrono::milliseconds> backoff = {
        std::chrono::seconds(1),  std::chrono::seconds(2),  std::chrono::seconds(5),
        std::chrono::seconds(10), std::chrono::seconds(30), std::chrono::seconds(60)};
    // Called on the reconnect thread with each wait before it starts. For tests.
    std::function<void(std::chrono::milliseconds)> on_backoff;
};

// The client over the Paho asynchronous library. Made through make_client_factory and shared
// through the pool; every line it logs starts "MQTT Client - <client id>: ".
class mqtt_client_paho final : public mqtt_client_interface {
  public:
    static constexpr std::size_t max_payload_size = 268435456;  // 256 MiB, MQTT's limit

    // Connects, and returns once the first attempt is decided (at most the connect timeout plus
    // a margin). When it fails and automatic_reconnect is off, throws the mapped client_failure;
    // with automatic_reconnect the client is made anyway and keeps retrying on a thread of its
    // own until connected or destroyed. The keep-alive is at most the connect timeout (at least
    // 2 s), so a broker that stops answering is noticed within about twice that. The container
    // provides the logger service and, for a client id suffix, the random string generator
    // (a missing factory throws the container's service_container_error). Throws
    // std::system_error when the TLS material cannot be stored.
    mqtt_client_paho(mqtt_client_settings settings,
                     std::weak_ptr<libtavohelper::module::service_container> container,
                     reconnect_options reconnect = {});
    // Stops the reconnect thread, unsubscribes every filter and disconnects when connected
    // (within about 2 s together, whatever the broker does), destroys the library handle and
    // removes the TLS files. Waits for running callbacks of this client, so it must not run on
    // one of them.
    ~mqtt_client_paho() override;

    mqtt_client_paho(const mqtt_client_paho&) = delete;
    mqtt_client_paho& operator=(const mqtt_client_paho&) = delete;

    void subscribe(const std::shared_ptr<topic_subscription_interface>& subscription) override;
    void unsubscribe(const std::shared_ptr<topic_subscription_interface>& subscription) override;
    void publish(const std::string& topic, const std::string& payload,
                 const quality_of_service& qos, bool retained) override;

    std::uint32_t get_active_client_count() const override;
    std::int64_t get_connect_duration() const override;
    bool is_connected() const override;
    bool subscriptions_in_place() const override { return !subscriptions_missing_; }
    std::exception_ptr last_failure() const override;
    std::string get_client_id() const override;
    std::uint64_t get_subscribed_topic_count() const override;
    void add_logger(const std::shared_ptr<liblog::log_interface>& logger,
                    int threshold = liblog::to_int(liblog::severity::debug)) override;
    void remove_logger(const std::shared_ptr<liblog::log_interface>& logger) override;

  private:
    friend struct paho_callbacks;
    friend class callback_scope;
    struct connect_options;

    void log(liblog::severity level, const std::string& text) const;
    // Logs "Return code = <code> <context>"; for a failure also "Error: <context>", then
    // throws the mapped exception (with the library's text when given, else the context).
    void check_return_code(int code, const std::string& context,
                           std::string_view library_text = {}) const;
    void configure_connect_options();
    void configure_tls();
    void shutdown() noexcept;

    // Library threads.
    bool enter_callback();
    void leave_callback();
    void handle_connect_success(int mqtt_version);
    void handle_connect_failure(int code, std::string_view text);
    void handle_connection_lost(std::string_view cause);
    void handle_connected(std::string_view cause);
    void on_message_arrived(const std::shared_ptr<const received_message>& message);
    void prune_expired(const std::vector<std::string>& filters);

    // Waits for the constructor's connect; the one place that blocks on the first attempt.
    void wait_for_first_attempt(std::future<void>& first_attempt);
    void start_reconnect_thread();
    void do_reconnect();
    // One pass of the reconnect sequence: connect when disconnected, then re-subscribe. True
    // when it ended connected; throws what failed.
    bool reconnect_once();
    bool wait_backoff(std::chrono::milliseconds wait);
    // Failures are kept as makers: each reader gets an exception object of its own, as one
    // object rethrown on several threads would be shared without any lock.
    using failure_maker = std::function<std::exception_ptr()>;
    std::uint64_t record_failure(failure_maker failure);
    // The library's connect failure made specific, naming the broker's address: an unresolvable
    // host, or what a probe connection of our own finds (a refused port, the TLS material's,
    // the handshake's or the verification's reason), else the TLS library's queued reason. Not
    // for library threads: it resolves the host name and connects (a few seconds at most,
    // ended early by destruction).
    failure_maker explain_failure(const failure_maker& failure) const;
    void note_tls_error(std::string text);
    // The wait for one broker request: the connect timeout, or less while tearing down.
    std::chrono::milliseconds request_wait() const;
    // Waits until the request completes or its wait passes (exceptions::timeout); throws its
    // mapped failure. Gives up early (mqttasync_disconnected) when no reconnect can complete it.
    void synchronize_call(int token, paho_request_state& request, const std::string& what);
    // Each sends its request holding `registry` and releases it for the wait.
    void subscribe_at_broker(const std::string& filter,
                             std::unique_lock<std::recursive_mutex>& registry);
    void unsubscribe_at_broker(const std::string& filter,
                               std::unique_lock<std::recursive_mutex>& registry);
    std::vector<std::shared_ptr<topic_subscription_interface>> live_subscriptions(
        const std::string& expired_line);
    void resubscribe_all();
    void unsubscribe_all();

    mqtt_client_settings settings_;
    std::weak_ptr<libtavohelper::module::service_container> container_;
    reconnect_options reconnect_;
    std::shared_ptr<liblog::multiplex_logger> log_;
    std::string client_id_;
    std::string server_uri_;
    // The library options point into these for the client's life.
    std::string username_;
    std::string password_;
    std::string key_password_;
    std::unique_ptr<private_file> ca_file_;
    std::unique_ptr<private_file> certificate_file_;
    std::unique_ptr<private_file> key_file_;
    std::unique_ptr<connect_options> options_;
    void* handle_ = nullptr;  // MQTTAsync

    std::chrono::seconds connect_timeout_;  // clamped, so waits built on it cannot overflow
    std::promise<void> first_attempt_;
    std::atomic<std::int64_t> connect_duration_{-1};
    std::atomic<bool> first_attempt_pending_{true};
    std::atomic<bool> automatic_reconnect_;
    std::atomic<bool> reconnect_in_progress_{false};
    std::atomic<bool> stopping_{false};
    // A reconnect's re-subscription failed; cleared when one puts every subscription back.
    std::atomic<bool> subscriptions_missing_{false};
    std::mutex reconnect_mutex_;  // with automatic_reconnect_, decides whether a thread may start
    std::condition_variable reconnect_wake_;
    bool reconnect_wake_requested_ = false;          // guarded by reconnect_mutex_
    std::unique_ptr<std::thread> reconnect_thread_;  // guarded by reconnect_mutex_
    // A loss reported while a reconnect runs: that reconnect goes round once more.
    bool loss_pending_ = false;  // guarded by reconnect_mutex_
    // Outcome of the reconnect thread's own connect attempt.
    bool attempt_decided_ = false;    // guarded by reconnect_mutex_
    bool attempt_succeeded_ = false;  // guarded by reconnect_mutex_
    failure_maker attempt_failure_;   // guarded by reconnect_mutex_; as the library said
    // Set once a request timed out; the next requests probe briefly until the broker answers.
    std::atomic<bool> broker_unresponsive_{false};
    // Teardown's end for the requests it still makes (steady clock ticks; 0: not tearing down).
    std::atomic<std::chrono::steady_clock::rep> teardown_deadline_{0};

    mutable std::mutex failure_mutex_;
    failure_maker last_failure_;              // guarded by failure_mutex_
    std::uint64_t failure_serial_ = 0;        // guarded by failure_mutex_; counts record_failure
    std::uint64_t first_failure_serial_ = 0;  // set before the first attempt's promise
    std::string tls_errors_;                  // guarded by failure_mutex_; of the current attempt

    // Orders the index edits of subscribe and unsubscribe with their broker requests, so the
    // broker sees one filter's requests in the order of the edits; released while a request
    // waits for its answer, so several are in flight at once. The re- and unsubscription of
    // all filters hold it throughout, one filter after the other. Recursive: they call the
    // former two.
    std::recursive_mutex registry_mutex_;
    // Held exclusively only for in-memory edits, so dispatch never waits for the broker.
    mutable std::shared_mutex index_mutex_;
    topic_filter_index index_;  // guarded by index_mutex_

    std::mutex callback_mutex_;
    std::condition_variable callbacks_done_;
    bool closing_ = false;       // guarded by callback_mutex_
    int callbacks_running_ = 0;  // guarded by callback_mutex_
    bool counted_ = false;
};

// The factory the module registers for mqtt_client_interface, keyed by mqtt_client_settings.
std::function<std::unique_ptr<mqtt_client_interface>(mqtt_client_settings)> make_client_factory(
    std::weak_ptr<libtavohelper::module::service_container> container);

}  // namespace corvanis::monitoring_modules::mqtt
