#include "mqtt/client_pool.h"

#include <gtest/gtest.h>

#include "liblog/memory_logger.h"
#include "mqtt/exceptions.h"
#include "mqtt/testing/fake_client.h"
#include "tests/support/expectations.h"

namespace mqtt = corvanis::monitoring_modules::mqtt;
namespace lg = corvanis::monitoring_modules::liblog;
using corvanis::monitoring_modules::libtavohelper::module::service_container;
using lg::severity;
using mqtt::testing::operation;

namespace {

struct pool : ::testing::Test {
    mqtt::testing::fake_broker broker;
    std::shared_ptr<service_container> container = std::make_shared<service_container>();
    std::shared_ptr<lg::memory_logger> log = std::make_shared<lg::memory_logger>();
    mqtt::mqtt_client_settings key{};

    void SetUp() override {
        key.connection.client_id = "KESH_1";
        container->register_factory<mqtt::mqtt_client_interface, mqtt::mqtt_client_settings>(
            broker.factory());
    }
    std::shared_ptr<mqtt::mqtt_client_interface> acquire(const mqtt::mqtt_client_settings& s) {
        return mqtt::acquire_client(*container, s, log);
    }
    std::vector<std::string> texts() const { return mqtt::testing::texts(*log); }
    void refuse_next_connect() {
        broker.fail_next(operation::connect,
                         mqtt::testing::failure<mqtt::exceptions::not_authorized>(
                             mqtt::messages::not_authorized()));
    }
};

// Equal settings share a client (the connect timeout is no part of equality, a suffix is); the
// pool never owns it. Entries of gone clients are the container's keyed family's business.
TEST_F(pool, equal_settings_share_the_live_client_and_only_the_first) {
    auto first = acquire(key);
    auto other_timeout = key;
    other_timeout.connection.connect_timeout = 99;
    EXPECT_EQ(acquire(key), first);
    EXPECT_EQ(acquire(other_timeout), first);
    EXPECT_EQ(broker.history().connects.size(), 1u);

    auto suffixed = key;
    suffixed.connection.client_id_suffix_length = 8;
    EXPECT_NE(acquire(suffixed), first);
    EXPECT_EQ(broker.history().connects.size(), 2u);

    const std::weak_ptr<mqtt::mqtt_client_interface> gone = first;
    first.reset();
    EXPECT_TRUE(gone.expired());  // the pool owns no client
}

TEST_F(pool, the_requester_sees_the_client_from_its_first_attempt_and_then_its_usage) {
    auto client = acquire(key);  // the fan-out starts with the requester's log
    EXPECT_EQ(texts(),
              (std::vector<std::string>{
                  "MQTT Client - KESH_1: Connected", "Using MQTT Client with Client ID: KESH_1",
                  "  Number of active Clients    : 1", "  Subscriptions on used Client: 0"}));

    // A sharer joins the fan-out of a client made for another log.
    auto sharer = std::make_shared<lg::memory_logger>();
    ASSERT_EQ(mqtt::acquire_client(*container, key, sharer), client);
    broker.log(severity::debug, "shared line");
    EXPECT_EQ(sharer->lines().at(3).second, "MQTT Client - KESH_1: shared line");
}

// A notice threshold holds while a new client connects, not only once it is handed out.
TEST_F(pool, a_threshold_applies_from_the_first_attempt_on) {
    struct row {
        const char* name;
        bool refused;
        std::vector<std::string> seen;
    };
    const std::vector<row> rows = {
        {"connects", false, {"MQTT Client - KESH_1: notice line"}},
        {"refused",
         true,
         {"The sensor could not establish a connection to the MQTT broker "
          "(server). Check your credentials for MQTT."}},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        log->clear();
        if (r.refused) refuse_next_connect();
        std::shared_ptr<mqtt::mqtt_client_interface> client;
        try {
            client = mqtt::acquire_client(*container, key, log, lg::to_int(severity::notice));
        } catch (const mqtt::exceptions::not_authorized&) {
        }
        broker.log(severity::debug, "debug line");
        broker.log(severity::notice, "notice line");
        std::vector<std::string> seen;
        for (const auto& [level, text] : log->lines())
            if (level <= severity::notice) seen.push_back(text);
        EXPECT_EQ(seen, r.seen);
        EXPECT_EQ(texts().size(), r.refused ? 1u : 4u);  // the usage lines only once handed out
    }
}

}  // namespace
