// The poll pacer's link inside the process: what it leaves open while it paces, and that it
// leaves nothing behind.
#include "mqtt/poll_pacer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

#include "tests/support/process.h"

namespace {

using corvanis::monitoring_modules::mqtt::poll_pacer;
namespace ts = corvanis::monitoring_modules::test_support;
using namespace std::chrono_literals;

// Inodes of the TCP sockets in LISTEN state that this process holds open.
std::set<std::string> own_listening_sockets() {
    std::set<std::string> listening;
    std::ifstream table("/proc/net/tcp");
    std::string line;
    std::getline(table, line);  // header
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        std::string slot, local, remote, state, queues, timer, retransmits, uid, timeout, inode;
        fields >> slot >> local >> remote >> state >> queues >> timer >> retransmits >> uid >>
            timeout >> inode;
        if (state == "0A") listening.insert("socket:[" + inode + "]");
    }
    std::set<std::string> own;
    for (const auto& inode : listening) {
        if (ts::open_descriptors_matching(inode) > 0) own.insert(inode);
    }
    return own;
}

// Waits a bounded time for a count to come back: library threads end shortly after their work.
template <class Count>
std::size_t settled(Count count, std::size_t expected) {
    for (int i = 0; i < 100 && count() != expected; ++i) std::this_thread::sleep_for(50ms);
    return count();
}

TEST(poll_pacer, links_on_first_pacing_without_a_listening_socket_and_leaves_nothing_behind) {
    const auto threads_before = ts::thread_baseline();
    const auto sockets_before = ts::open_descriptors_matching("socket:");
    auto pacer = std::make_shared<poll_pacer>();
    EXPECT_FALSE(pacer->linked());  // nothing until someone paces
    EXPECT_EQ(ts::thread_count(), threads_before);
    {
        const auto outer = pacer->pace();
        ASSERT_TRUE(pacer->linked());
        EXPECT_TRUE(own_listening_sockets().empty());
        const auto inner = pacer->pace();  // counted, not restarted
        EXPECT_TRUE(pacer->linked());
    }
    EXPECT_TRUE(pacer->linked());  // the link stays for the next one
    EXPECT_GT(ts::open_descriptors_matching("socket:"), sockets_before);
    pacer.reset();  // the link, its thread and its sockets go with the pacer
    EXPECT_EQ(settled(ts::thread_count, threads_before), threads_before);
    EXPECT_EQ(settled([] { return ts::open_descriptors_matching("socket:"); }, sockets_before),
              sockets_before);
}

TEST(poll_pacer, paces_unlinked_rather_than_failing_when_not_shared) {
    poll_pacer unshared;  // pace() needs shared ownership to outlive its guards
    const auto pacing = unshared.pace();
    EXPECT_FALSE(unshared.linked());
}

}  // namespace
