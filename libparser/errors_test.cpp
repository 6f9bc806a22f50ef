#include "libparser/errors.h"

#include <gtest/gtest.h>

namespace lp = corvanis::monitoring_modules::libparser;

namespace {

// A missing feature must not be reported to the host as bad data.
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
