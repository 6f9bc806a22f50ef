#pragma once

// Header-only helpers for gtest files; the including test links libi18n.

#include <gtest/gtest.h>

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
