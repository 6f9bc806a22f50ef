#pragma once

// Header-only helpers for gtest files; the including test links libi18n.

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "libi18n/i18n_exception.h"

namespace corvanis::monitoring_modules::test_support {

// Polls until the condition holds or the timeout passes; returns its last value. For waiting
// on other threads, never for measuring them.
template <class Condition>
bool eventually(Condition condition,
                std::chrono::milliseconds timeout = std::chrono::milliseconds(10000)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return condition();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

}  // namespace corvanis::monitoring_modules::test_support

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
