#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "liblog/memory_logger.h"
#include "liblog/multiplex_logger.h"

namespace lg = corvanis::monitoring_modules::liblog;
using lg::severity;

namespace {

TEST(multiplex_logger, thresholds_filter_per_target_and_lines_keep_their_order) {
    lg::multiplex_logger mux;
    auto strict = std::make_shared<lg::memory_logger>();
    auto verbose = std::make_shared<lg::memory_logger>();
    mux.add(strict, 4);
    mux.add(verbose, 7);
    mux.log(severity::warning, "w");
    mux.log(severity::debug, "d");
    EXPECT_EQ(strict->lines(), (lg::log_lines{{severity::warning, "w"}}));
    EXPECT_EQ(verbose->lines(), (lg::log_lines{{severity::warning, "w"}, {severity::debug, "d"}}));

    mux.add(strict, 7);  // re-adding changes the threshold, not the count
    EXPECT_EQ(mux.size(), 2u);
    mux.remove(verbose);
    mux.log(severity::debug, "d2");
    EXPECT_EQ(strict->lines().size(), 2u);
    EXPECT_EQ(verbose->lines().size(), 2u);
}

TEST(multiplex_logger, expired_targets_are_pruned_by_the_next_log_only) {
    lg::multiplex_logger mux;
    auto kept = std::make_shared<lg::memory_logger>();
    auto gone = std::make_shared<lg::memory_logger>();
    mux.add(kept);
    mux.add(gone);
    mux.add(nullptr);
    gone.reset();
    EXPECT_EQ(mux.size(), 2u);
    mux.log(severity::info, "x");
    EXPECT_EQ(mux.size(), 1u);
    EXPECT_EQ(kept->lines().size(), 1u);
}

// A target whose level the host sets at run time, as the module's sensor log is.
class leveled_logger : public lg::memory_logger {
  public:
    int keeps_up_to() const noexcept override { return level; }
    std::atomic<int> level{4};
};

// Lines no target keeps are skipped without a walk; a changed level or a new target is seen by
// the very next line.
TEST(multiplex_logger, skips_lines_no_target_keeps_and_sees_changes_at_once) {
    lg::multiplex_logger mux;
    auto sensor = std::make_shared<leveled_logger>();
    mux.add(sensor);
    mux.log(severity::info, "skipped");
    mux.log(severity::warning, "kept");
    sensor->level = 7;
    lg::levels_changed();
    mux.log(severity::info, "kept after the change");
    sensor->level = 4;
    lg::levels_changed();
    mux.log(severity::info, "skipped again");
    EXPECT_EQ(sensor->lines(), (lg::log_lines{{severity::warning, "kept"},
                                              {severity::info, "kept after the change"}}));

    auto verbose = std::make_shared<lg::memory_logger>();
    mux.add(verbose);  // while the last walk found no one below warning
    mux.log(severity::debug, "for the new target");
    EXPECT_EQ(verbose->lines(), (lg::log_lines{{severity::debug, "for the new target"}}));
    EXPECT_EQ(sensor->lines().size(), 2u);
}

TEST(multiplex_logger, concurrent_logging_loses_no_line) {
    lg::multiplex_logger mux;
    auto sink = std::make_shared<lg::memory_logger>();
    mux.add(sink);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 500; ++i) mux.log(severity::info, "line");
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(sink->lines().size(), 2000u);
}

}  // namespace
