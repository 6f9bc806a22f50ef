#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "libtavohelper/module/service_container.h"

namespace th = corvanis::monitoring_modules::libtavohelper;

namespace {

struct widget_interface {
    virtual ~widget_interface() = default;
    virtual int key() const = 0;
};
struct widget : widget_interface {
    explicit widget(int k) : k_(k) {}
    int key() const override { return k_; }
    int k_;
};
using widget_factory = std::function<std::unique_ptr<widget_interface>(int)>;

// A container whose keyed widget factory counts what it built and fails on request.
class service_container : public ::testing::Test {
  protected:
    void SetUp() override {
        c.register_factory<widget_interface, int>(
            widget_factory([this](int key) -> std::unique_ptr<widget_interface> {
                if (fail) throw std::runtime_error("broker down");
                ++made;
                std::this_thread::sleep_for(std::chrono::milliseconds(5));  // widen the race
                return std::make_unique<widget>(key);
            }));
    }
    std::shared_ptr<widget_interface> acquire(int key) {
        return c.acquire<widget_interface, int>(key);
    }
    th::module::service_container c;
    std::atomic<int> made{0};
    bool fail = false;
};

template <class F>
std::string key_of_failure(F&& f) {
    try {
        f();
    } catch (const th::utils::exceptions::service_container_error& e) {
        return e.message().key();
    }
    return "no exception";
}

TEST_F(service_container, factory_and_instance_errors_carry_their_keys) {
    EXPECT_EQ(key_of_failure([&] { c.register_factory<widget_interface, int>(widget_factory()); }),
              "libtavohelper.error.already_contains_factory");
    EXPECT_EQ(key_of_failure([&] { c.create<widget_interface>(); }),  // wrong signature
              "libtavohelper.error.factory_not_available");
    EXPECT_EQ(key_of_failure([&] { c.get_instance<widget_interface>(); }),
              "libtavohelper.error.instance_not_available");
    c.add_instance<widget_interface>(std::make_shared<widget>(1));
    EXPECT_EQ(
        key_of_failure([&] { c.add_instance<widget_interface>(std::make_shared<widget>(2)); }),
        "libtavohelper.error.already_contains_instance");
    EXPECT_EQ(key_of_failure([&] { c.get_keyed<widget_interface, int>(9); }),
              "libtavohelper.error.instance_not_available_key");
    EXPECT_EQ(c.create<widget_interface>(7)->key(), 7);
}

TEST_F(service_container, keyed_family_shares_live_instances_and_stores_no_failure) {
    fail = true;
    EXPECT_THROW(acquire(1), std::runtime_error);
    fail = false;
    auto a = acquire(1);
    EXPECT_EQ(a, acquire(1));
    EXPECT_NE(a, acquire(2));
    a.reset();
    // The first entry for key 1 has gone: later ones are made afresh and not shared.
    EXPECT_NE(acquire(1), acquire(1));
    EXPECT_EQ(made.load(), 4);
}

TEST_F(service_container, concurrent_keyed_acquisition_builds_one_instance_per_key) {
    std::vector<std::shared_ptr<widget_interface>> got(8);
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) threads.emplace_back([&, t] { got[t] = acquire(t % 2); });
    for (auto& t : threads) t.join();
    EXPECT_EQ(made.load(), 2);
    for (int t = 0; t < 8; ++t) {
        EXPECT_EQ(got[t], got[t % 2]);
        EXPECT_EQ(got[t]->key(), t % 2);
    }
}

}  // namespace
