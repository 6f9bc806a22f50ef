#include "libparser/errors.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

namespace lp = corvanis::monitoring_modules::libparser;

namespace {

// Every message renders with exactly the arguments its raisers pass, and no fewer.
TEST(libparser_catalogue, keys_are_unique_prefixed_and_take_their_arguments) {
    const std::map<std::string, std::size_t> arity = {
        {"libparser.error.empty_result", 1},
        {"libparser.error.unexpected_type", 1},
    };
    std::set<std::string> keys;
    for (const auto* msg : lp::messages::all()) {
        SCOPED_TRACE(msg->key());
        EXPECT_TRUE(keys.insert(msg->key()).second);
        ASSERT_EQ(arity.count(msg->key()), 1U);
        const std::vector<std::string> args(arity.at(msg->key()), "x");
        EXPECT_NO_THROW(msg->with_args(args).render());
        EXPECT_ANY_THROW(msg->with_args({args.begin(), args.end() - 1}).render());
    }
    EXPECT_EQ(keys.size(), arity.size());
}

TEST(libparser_errors, not_implemented_is_outside_the_localised_family) {
    try {
        throw lp::exceptions::not_implemented();
    } catch (const lp::exceptions::exception&) {
        ADD_FAILURE() << "caught as a data error";
    } catch (const std::exception& e) {
        EXPECT_STREQ(e.what(), "NOT YET IMPLEMENTED");
    }
}

}  // namespace
