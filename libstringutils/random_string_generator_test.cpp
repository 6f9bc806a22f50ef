#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

#include "libstringutils/random_string_generator.h"

namespace su = corvanis::monitoring_modules::libstringutils;

namespace {

std::set<char> chars_of(const std::string& text) {
    return {text.begin(), text.end()};
}

TEST(random_string_generator, draws_exact_length_from_the_whole_alphabet_unlike_another_one) {
    auto gen = su::make_random_string_generator();
    EXPECT_EQ(gen->generate(0), "");
    const std::string text = gen->generate(20000);
    ASSERT_EQ(text.size(), 20000u);
    EXPECT_EQ(chars_of(text),
              chars_of("0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"));
    EXPECT_NE(gen->generate(32), su::make_random_string_generator()->generate(32));

    gen->set_alphabet("x");
    EXPECT_EQ(gen->generate(50), std::string(50, 'x'));
    gen->set_alphabet("ab");
    EXPECT_EQ(chars_of(gen->generate(2000)), chars_of("ab"));
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
