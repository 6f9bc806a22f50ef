#include "host/state_store.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

namespace corvanis::monitoring_modules::host {
namespace {

TEST(state_store_test, data_survives_reopening_and_belongs_to_one_kind) {
    const auto path = ::testing::TempDir() + "host-state-" + std::to_string(getpid()) + ".db";
    std::filesystem::remove(path);
    const std::string binary("a\0b\xff", 4);
    {
        state_store store(path);
        EXPECT_TRUE(store.load(1, "counter_sensor").empty());
        store.put(1, "count", "41");
        store.put(1, "count", "42");
        store.put(1, "blob", binary);
        store.put(2, "count", "7");
    }
    state_store store(path);
    EXPECT_EQ(store.load(1, "counter_sensor"),
              (std::map<std::string, std::string>{{"blob", binary}, {"count", "42"}}));
    // Sensor 2 was never created here, so its data carries no kind and does not count.
    EXPECT_TRUE(store.load(2, "counter_sensor").empty());
    EXPECT_TRUE(store.load(1, "topic_sensor").empty());
    EXPECT_TRUE(store.load(1, "counter_sensor").empty());
    std::filesystem::remove(path);
}

TEST(state_store_test, counter_readings_survive_reopening_and_go_with_a_change_of_kind) {
    const auto path = ::testing::TempDir() + "host-counters-" + std::to_string(getpid()) + ".db";
    std::filesystem::remove(path);
    {
        state_store store(path);
        store.load(1, "counter_sensor");
        store.put_counters(1, {{0, 136}, {3, INT64_MAX}});
        store.put_counters(1, {{0, 146}});
        store.put_counters(2, {{0, 5}});
    }
    state_store store(path);
    store.load(1, "counter_sensor");
    EXPECT_EQ(store.load_counters(1), (std::map<int, std::int64_t>{{0, 146}, {3, INT64_MAX}}));
    store.load(1, "topic_sensor");
    EXPECT_TRUE(store.load_counters(1).empty());
    EXPECT_EQ(store.load_counters(2), (std::map<int, std::int64_t>{{0, 5}}));
    std::filesystem::remove(path);
}

}  // namespace
}  // namespace corvanis::monitoring_modules::host
