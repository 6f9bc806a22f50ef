#include <gtest/gtest.h>

#include "liblog/memory_logger.h"
#include "mqtt/client_pool.h"
#include "mqtt/exceptions.h"
#include "tests/support/expectations.h"

namespace mqtt = corvanis::monitoring_modules::mqtt;
namespace lg = corvanis::monitoring_modules::liblog;
using corvanis::monitoring_modules::libtavohelper::module::service_container;

namespace {

// The pool only stores and hands out clients: none of these is called.
class fake_client : public mqtt::mqtt_client_interface {
  public:
    void subscribe(const std::shared_ptr<mqtt::topic_subscription_interface>&) override {}
    void unsubscribe(const std::shared_ptr<mqtt::topic_subscription_interface>&) override {}
    void publish(const std::string&, const std::string&, const mqtt::quality_of_service&,
                 bool) override {}
    std::uint32_t get_active_client_count() const override { return 0; }
    std::int64_t get_connect_duration() const override { return 0; }
    bool is_connected() const override { return true; }
    std::string get_client_id() const override { return {}; }
    std::uint64_t get_subscribed_topic_count() const override { return 0; }
    void add_logger(const std::shared_ptr<lg::log_interface>&, int) override {}
    void remove_logger(const std::shared_ptr<lg::log_interface>&) override {}
};

struct pool : ::testing::Test {
    std::shared_ptr<service_container> container = std::make_shared<service_container>();
    const mqtt::mqtt_client_settings key{};
    int made = 0;
    bool fail = false;

    // Counts the clients it makes; fails on demand.
    void SetUp() override {
        using client_ptr = std::unique_ptr<mqtt::mqtt_client_interface>;
        container->register_factory<mqtt::mqtt_client_interface, mqtt::mqtt_client_settings>(
            std::function<client_ptr(mqtt::mqtt_client_settings)>([this](auto) -> client_ptr {
                if (fail)
                    throw mqtt::exceptions::not_authorized(mqtt::messages::not_authorized()());
                ++made;
                return std::make_unique<fake_client>();
            }));
    }
    std::shared_ptr<mqtt::mqtt_client_interface> acquire(const mqtt::mqtt_client_settings& s) {
        return mqtt::acquire_client(*container, s);
    }
};

// The pool never owns clients, and never replaces the entry of one that has gone: after that,
// equal settings are no longer shared.
TEST_F(pool, equal_settings_share_the_live_client_and_only_the_first) {
    auto first = acquire(key);
    auto other_timeout = key;
    other_timeout.connection.connect_timeout = 99;
    other_timeout.logger = std::make_shared<lg::null_logger>();
    EXPECT_EQ(acquire(key), first);
    EXPECT_EQ(acquire(other_timeout), first);
    EXPECT_EQ(made, 1);

    auto suffixed = key;
    suffixed.connection.client_id_suffix_length = 8;
    EXPECT_NE(acquire(suffixed), first);
    EXPECT_EQ(made, 2);

    const std::weak_ptr<mqtt::mqtt_client_interface> gone = first;
    first.reset();
    EXPECT_TRUE(gone.expired());
    auto a = acquire(key);
    EXPECT_NE(acquire(key), a);
    EXPECT_EQ(made, 4);
}

TEST_F(pool, a_failed_construction_stores_nothing) {
    fail = true;
    EXPECT_THROW_KEY(acquire(key), "error.not_authorized");
    fail = false;
    auto client = acquire(key);
    EXPECT_EQ(acquire(key), client);
    EXPECT_EQ(made, 1);
}

}  // namespace
