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

}  // namespace
}  // namespace corvanis::monitoring_modules::host
