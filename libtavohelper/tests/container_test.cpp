#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "libtavohelper/module/service_container.h"

namespace th = corvanis::monitoring_modules::libtavohelper;
using th::module::service_container;

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

std::function<std::unique_ptr<widget_interface>(int)> counting_factory(std::atomic<int>& made) {
    return [&made](int key) -> std::unique_ptr<widget_interface> {
        ++made;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));  // widen the race window
        return std::make_unique<widget>(key);
    };
}

template <class F>
std::string key_of_failure(F&& f) {
    try {
        f();
    } catch (const th::utils::exceptions::service_container_error& e) {
        return e.message().key();
    }
    return "no exception";
}

TEST(service_container, factory_and_instance_errors_carry_their_keys) {
    service_container c;
    std::atomic<int> made{0};
    c.register_factory<widget_interface, int>(counting_factory(made));
    EXPECT_EQ(
        key_of_failure([&] { c.register_factory<widget_interface, int>(counting_factory(made)); }),
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

TEST(service_container, keyed_family_shares_live_instances_and_never_replaces_dead_entries) {
    service_container c;
    std::atomic<int> made{0};
    c.register_factory<widget_interface, int>(counting_factory(made));
    auto a = c.acquire<widget_interface, int>(1);
    auto b = c.acquire<widget_interface, int>(1);
    EXPECT_EQ(a, b);
    EXPECT_NE(a, (c.acquire<widget_interface, int>(2)));
    a.reset();
    b.reset();
    // The first entry for key 1 has gone: later ones are made afresh and not shared.
    auto x = c.acquire<widget_interface, int>(1);
    auto y = c.acquire<widget_interface, int>(1);
    EXPECT_NE(x, y);
    EXPECT_EQ(made.load(), 4);
}

TEST(service_container, a_failing_factory_stores_nothing) {
    service_container c;
    bool fail = true;
    c.register_factory<widget_interface, int>(std::function<std::unique_ptr<widget_interface>(int)>(
        [&fail](int k) -> std::unique_ptr<widget_interface> {
            if (fail) throw std::runtime_error("broker down");
            return std::make_unique<widget>(k);
        }));
    EXPECT_THROW(c.acquire<widget_interface>(3), std::runtime_error);
    fail = false;
    auto w = c.acquire<widget_interface>(3);
    EXPECT_EQ(w, c.acquire<widget_interface>(3));
}

TEST(service_container, concurrent_keyed_acquisition_builds_one_instance_per_key) {
    service_container c;
    std::atomic<int> made{0};
    c.register_factory<widget_interface, int>(counting_factory(made));
    std::vector<std::shared_ptr<widget_interface>> got(8);
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&, t] { got[t] = c.acquire<widget_interface, int>(t % 2); });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(made.load(), 2);
    for (int t = 0; t < 8; ++t) {
        EXPECT_EQ(got[t], got[t % 2]);
        EXPECT_EQ(got[t]->key(), t % 2);
    }
}

}  // namespace
