#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

#include "libstringutils/random_string_generator.h"

namespace su = corvanis::monitoring_modules::libstringutils;

namespace {

TEST(random_string_generator, default_alphabet_is_digits_lower_upper) {
    EXPECT_EQ(su::default_alphabet(),
              "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ");
}

TEST(random_string_generator, draws_exact_length_from_the_whole_alphabet) {
    auto gen = su::make_random_string_generator();
    EXPECT_EQ(gen->generate(0), "");
    const std::string text = gen->generate(20000);
    ASSERT_EQ(text.size(), 20000u);
    const std::set<char> seen(text.begin(), text.end());
    EXPECT_EQ(seen, std::set<char>(su::default_alphabet().begin(), su::default_alphabet().end()));
}

TEST(random_string_generator, a_new_alphabet_bounds_every_draw) {
    auto gen = su::make_random_string_generator();
    gen->set_alphabet("x");
    EXPECT_EQ(gen->generate(50), std::string(50, 'x'));
    gen->set_alphabet("ab");
    const std::string text = gen->generate(2000);
    EXPECT_EQ(std::set<char>(text.begin(), text.end()), (std::set<char>{'a', 'b'}));
}

TEST(random_string_generator, two_generators_do_not_repeat_each_other) {
    auto a = su::make_random_string_generator();
    auto b = su::make_random_string_generator();
    EXPECT_NE(a->generate(32), b->generate(32));
}

// Sensors scanning in parallel share one generator; the sanitizer builds check the guard.
TEST(random_string_generator, parallel_callers_each_get_full_strings) {
    auto gen = su::make_random_string_generator();
    std::vector<std::thread> threads;
    std::vector<std::string> results(4);
    for (std::size_t t = 0; t < results.size(); ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 200; ++i) results[t] += gen->generate(5);
        });
    }
    for (auto& t : threads) t.join();
    for (const auto& r : results) {
        EXPECT_EQ(r.size(), 1000u);
        EXPECT_EQ(r.find_first_not_of(su::default_alphabet()), std::string::npos);
    }
}

}  // namespace
