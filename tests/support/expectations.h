#pragma once

// Header-only helpers for gtest files; the including test links libi18n.

#include <gtest/gtest.h>

#include <exception>
#include <string>

#include "libi18n/i18n_exception.h"
#include "tests/support/process.h"

// Expects the statement to throw a localised exception carrying the message key.
#define EXPECT_THROW_KEY(statement, expected_key)                                     \
    do {                                                                              \
        try {                                                                         \
            statement;                                                                \
            ADD_FAILURE() << "no exception from: " #statement;                        \
        } catch (const ::corvanis::monitoring_modules::libi18n::i18n_exception& e_) { \
            EXPECT_EQ(e_.message().key(), expected_key) << e_.what();                 \
        } catch (const std::exception& e_) {                                          \
            ADD_FAILURE() << "not localised: " << e_.what();                          \
        }                                                                             \
    } while (false)

namespace corvanis::monitoring_modules::test_support {

// "key: English text" of the localised failure the call raised, "std: what()" of any other
// exception, or "accepted": one string a table row can hold.
template <class Call>
std::string failure_of(Call&& call) {
    try {
        call();
    } catch (const libi18n::i18n_exception& e) {
        return e.message().key() + ": " + e.what();
    } catch (const std::exception& e) {
        return std::string("std: ") + e.what();
    }
    return "accepted";
}

}  // namespace corvanis::monitoring_modules::test_support
