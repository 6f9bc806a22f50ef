#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <future>
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

// A factory that holds chosen keys until released, as a first connect to a dead broker does.
struct gated_factory {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<int> entered;  // guarded by mutex
    bool open = false;         // guarded by mutex
    bool fail_next = false;    // guarded by mutex
    std::atomic<int> made{0};

    widget_factory factory(int held, bool fail_once) {
        fail_next = fail_once;
        return [this, held](int key) -> std::unique_ptr<widget_interface> {
            std::unique_lock lock(mutex);
            entered.push_back(key);
            changed.notify_all();
            if (key == held) {
                changed.wait(lock, [&] { return open; });
                if (std::exchange(fail_next, false)) throw std::runtime_error("unreachable");
            }
            ++made;
            return std::make_unique<widget>(key);
        };
    }
    void wait_entered(std::size_t count) {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return entered.size() >= count; });
    }
    void release() {
        std::lock_guard lock(mutex);
        open = true;
        changed.notify_all();
    }
};

// Counts the comparisons of int keys, which a lookup makes only on meeting an equal hash: a
// request that found a construction under way has compared with it.
struct counting_equal {
    static inline std::atomic<int> calls{0};
    bool operator()(int a, int b) const {
        ++calls;
        return a == b;
    }
};

// While one key's construction hangs, other keys are served; requests for the hanging key wait
// for its outcome and share it, the instance or the failure alike.
TEST(keyed_acquisition, a_hanging_construction_delays_only_its_own_key) {
    for (const bool fails : {false, true}) {
        SCOPED_TRACE(fails ? "failing" : "succeeding");
        th::module::service_container c;
        gated_factory gate;
        c.register_factory<widget_interface, int>(gate.factory(1, fails));
        const auto get = [&](int key) {
            return c.acquire<widget_interface, int, std::hash<int>, counting_equal>(key);
        };
        auto first = std::async(std::launch::async, [&] { return get(1); });
        gate.wait_entered(1);
        EXPECT_EQ(get(2)->key(), 2);  // while key 1 hangs
        // The second requester of key 1 has found the first's attempt once it compared keys;
        // nothing else compares from here on.
        counting_equal::calls = 0;
        auto second = std::async(std::launch::async, [&] { return get(1); });
        while (counting_equal::calls == 0) std::this_thread::yield();
        gate.release();
        if (fails) {
            EXPECT_THROW(first.get(), std::runtime_error);
            EXPECT_THROW(second.get(), std::runtime_error);
            EXPECT_EQ(get(1)->key(), 1);  // nothing was stored
        } else {
            const auto shared = first.get();
            EXPECT_EQ(second.get(), shared);
        }
        EXPECT_EQ(std::count(gate.entered.begin(), gate.entered.end(), 1), fails ? 2 : 1);
    }
}

// A key carries what its first requester handed over (in the pool: password and logger). It
// goes with the instance, and the key is still never revived.
TEST(keyed_acquisition, the_key_copy_goes_with_its_instance) {
    struct owner_key {
        int id;
        std::shared_ptr<int> payload;
        bool operator==(const owner_key& other) const { return id == other.id; }
    };
    struct owner_hash {
        std::size_t operator()(const owner_key& k) const { return std::hash<int>{}(k.id); }
    };
    th::module::service_container c;
    c.register_factory<widget_interface, owner_key>(
        std::function<std::unique_ptr<widget_interface>(owner_key)>(
            [](owner_key k) { return std::make_unique<widget>(k.id); }));
    const auto get = [&](owner_key key) {
        return c.acquire<widget_interface, owner_key, owner_hash>(std::move(key));
    };
    auto payload = std::make_shared<int>(7);
    const std::weak_ptr<int> watched = payload;
    auto instance = get({1, std::move(payload)});
    EXPECT_EQ(get({1, nullptr}), instance);
    EXPECT_FALSE(watched.expired());
    instance.reset();
    EXPECT_TRUE(watched.expired());
    const auto again = get({1, nullptr});
    EXPECT_NE(get({1, nullptr}), again);
}

}  // namespace
