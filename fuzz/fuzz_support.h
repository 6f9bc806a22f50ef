#pragma once
// Shared by the fuzz targets. The library's own failures (every family derives from
// libexception::exception) are a documented answer to bad input; anything else that escapes
// a target is a defect and ends the run.

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdio>
#include <cstdlib>

#include "libexception/exception.h"

namespace fuzz {

template <typename Body>
bool expecting_library_errors(Body&& body) {
    try {
        body();
        return true;
    } catch (const corvanis::monitoring_modules::libexception::exception&) {
        return false;
    }
}

// A differential check failed: name it and stop the run, so libFuzzer keeps the input.
[[noreturn]] inline void mismatch(const char* what) {
    std::fprintf(stderr, "differential mismatch: %s\n", what);
    std::abort();
}

}  // namespace fuzz
