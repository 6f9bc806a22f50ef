#include "mqtt/testing/fake_client.h"

#include <algorithm>
#include <deque>
#include <mutex>
#include <set>
#include <thread>

#include "liblog/multiplex_logger.h"

namespace corvanis::monitoring_modules::mqtt::testing {

namespace {
class fake_client;
}

struct fake_broker::state {
    struct failure {
        operation op;
        std::exception_ptr error;
        std::string prefix;
    };
    struct registration {
        const fake_client* client;
        std::weak_ptr<topic_subscription_interface> subscription;
    };

    mutable std::mutex mutex;
    behaviour behave;                         // guarded by mutex
    record done;                              // guarded by mutex
    std::deque<failure> failures;             // guarded by mutex
    std::vector<registration> registrations;  // guarded by mutex
    std::set<fake_client*> clients;           // guarded by mutex

    // Waits the operation's delay, then throws its queued failure for this client, if any.
    void answer(operation op, const std::string& client_id) {
        std::chrono::milliseconds delay{0};
        std::exception_ptr error;
        {
            std::lock_guard lock(mutex);
            if (const auto d = behave.delays.find(op); d != behave.delays.end()) delay = d->second;
            const auto f =
                std::find_if(failures.begin(), failures.end(), [&](const failure& queued) {
                    return queued.op == op && client_id.starts_with(queued.prefix);
                });
            if (f != failures.end()) {
                error = f->error;
                failures.erase(f);
            }
        }
        std::this_thread::sleep_for(delay);
        if (error) std::rethrow_exception(error);
    }

    std::size_t deliver(const std::string& topic, const std::string& payload) {
        std::vector<std::shared_ptr<topic_subscription_interface>> targets;
        {
            std::lock_guard lock(mutex);
            for (const auto& r : registrations) {
                auto s = r.subscription.lock();
                if (s && s->matches(topic)) targets.push_back(std::move(s));
            }
        }
        auto message = std::make_shared<received_message>(received_message{
            topic, {payload.begin(), payload.end()}, std::chrono::system_clock::now()});
        for (const auto& s : targets) s->receive(message);
        return targets.size();
    }
};

namespace {

class fake_client : public mqtt_client_interface {
  public:
    fake_client(std::shared_ptr<fake_broker::state> broker, const mqtt_client_settings& settings)
        : broker_(std::move(broker)), id_(settings.connection.client_id) {
        log_.add(settings.logger);
        std::lock_guard lock(broker_->mutex);
        broker_->clients.insert(this);
    }
    ~fake_client() override {
        std::lock_guard lock(broker_->mutex);
        broker_->clients.erase(this);
        std::erase_if(broker_->registrations, [this](const auto& r) { return r.client == this; });
    }

    void subscribe(const std::shared_ptr<topic_subscription_interface>& subscription) override {
        if (!subscription) return;
        broker_->answer(operation::subscribe, id_);
        std::lock_guard lock(broker_->mutex);
        broker_->done.subscribed.push_back(subscription->get_topic_filter());
        broker_->registrations.push_back({this, subscription});
    }
    void unsubscribe(const std::shared_ptr<topic_subscription_interface>& subscription) override {
        if (!subscription) return;
        {
            std::lock_guard lock(broker_->mutex);
            broker_->done.unsubscribed.push_back(subscription->get_topic_filter());
            std::erase_if(broker_->registrations, [&](const auto& r) {
                return r.client == this && r.subscription.lock() == subscription;
            });
        }
        broker_->answer(operation::unsubscribe, id_);
    }
    void publish(const std::string& topic, const std::string& payload,
                 const quality_of_service& qos, bool retained) override {
        broker_->answer(operation::publish, id_);
        std::optional<std::string> routed = payload;
        {
            std::lock_guard lock(broker_->mutex);
            broker_->done.publications.push_back({id_, topic, payload, qos, retained});
            if (broker_->behave.route) routed = broker_->behave.route(payload);
        }
        if (routed) broker_->deliver(topic, *routed);
    }

    std::uint32_t get_active_client_count() const override {
        std::lock_guard lock(broker_->mutex);
        return static_cast<std::uint32_t>(broker_->clients.size());
    }
    std::int64_t get_connect_duration() const override {
        std::lock_guard lock(broker_->mutex);
        return broker_->behave.connect_duration;
    }
    bool is_connected() const override {
        std::lock_guard lock(broker_->mutex);
        return broker_->behave.connected;
    }
    std::string get_client_id() const override { return id_; }
    std::uint64_t get_subscribed_topic_count() const override {
        std::lock_guard lock(broker_->mutex);
        std::set<std::string> filters;
        for (const auto& r : broker_->registrations) {
            auto s = r.subscription.lock();
            if (r.client == this && s) filters.insert(s->get_topic_filter());
        }
        return filters.size();
    }
    void add_logger(const std::shared_ptr<liblog::log_interface>& logger, int threshold) override {
        log_.add(logger, threshold);
    }
    void remove_logger(const std::shared_ptr<liblog::log_interface>& logger) override {
        log_.remove(logger);
    }

    void log(liblog::severity level, const std::string& text) {
        log_.log(level, "MQTT Client - " + id_ + ": " + text);
    }

  private:
    std::shared_ptr<fake_broker::state> broker_;
    std::string id_;
    liblog::multiplex_logger log_;
};

}  // namespace

std::vector<std::string> texts(const liblog::memory_logger& log) {
    std::vector<std::string> t;
    for (const auto& [level, text] : log.lines()) t.push_back(text);
    return t;
}

fake_broker::fake_broker() : state_(std::make_shared<state>()) {}

std::function<std::unique_ptr<mqtt_client_interface>(mqtt_client_settings)> fake_broker::factory()
    const {
    return [broker = state_](mqtt_client_settings settings) {
        try {
            broker->answer(operation::connect, settings.connection.client_id);
        } catch (const std::exception& e) {
            if (settings.logger) settings.logger->log(liblog::severity::error, e.what());
            throw;
        }
        auto client = std::make_unique<fake_client>(broker, settings);
        client->log(liblog::severity::debug, "Connected");
        settings.logger.reset();  // held weakly, as by the real client
        std::lock_guard lock(broker->mutex);
        broker->done.connects.push_back(std::move(settings));
        return std::unique_ptr<mqtt_client_interface>(std::move(client));
    };
}

void fake_broker::configure(const std::function<void(behaviour&)>& change) {
    std::lock_guard lock(state_->mutex);
    change(state_->behave);
}

fake_broker::record fake_broker::history() const {
    std::lock_guard lock(state_->mutex);
    auto r = state_->done;
    r.live_clients = state_->clients.size();
    return r;
}

void fake_broker::fail_next(operation op, std::exception_ptr failure,
                            std::string client_id_prefix) {
    std::lock_guard lock(state_->mutex);
    state_->failures.push_back({op, std::move(failure), std::move(client_id_prefix)});
}

std::size_t fake_broker::publish(const std::string& topic, const std::string& payload) {
    return state_->deliver(topic, payload);
}

void fake_broker::log(liblog::severity level, const std::string& text) {
    std::lock_guard lock(state_->mutex);
    for (auto* client : state_->clients) client->log(level, text);
}

}  // namespace corvanis::monitoring_modules::mqtt::testing
