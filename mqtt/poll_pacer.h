#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "libtavohelper/module/service_container.h"

namespace corvanis::monitoring_modules::mqtt {

// Keeps the MQTT library's shared receive thread turning while someone times a connection or a
// round trip, so the times read are the broker's and not the library's poll rounds. Costs
// nothing while no one paces: its link idles without traffic and its thread sleeps. One per
// module, kept in the service container; destruction ends the link, its thread and sockets.
// Thread-safe.
class poll_pacer : public std::enable_shared_from_this<poll_pacer> {
  public:
    // While one of these lives, the library's polls return at once. Made by pace(); an empty
    // one (no pacer) does nothing.
    class pacing {
      public:
        pacing() = default;
        explicit pacing(std::shared_ptr<poll_pacer> pacer);
        ~pacing();
        pacing(pacing&& other) noexcept = default;
        pacing& operator=(pacing&&) = delete;
        pacing(const pacing&) = delete;
        pacing& operator=(const pacing&) = delete;

      private:
        std::shared_ptr<poll_pacer> pacer_;
    };

    poll_pacer();
    ~poll_pacer();
    poll_pacer(const poll_pacer&) = delete;
    poll_pacer& operator=(const poll_pacer&) = delete;

    // Starts pacing; sets the link up on first use and waits for it at most `link_wait`. When
    // the link cannot be had, the caller goes on unpaced: slower, never wrong. Never throws.
    pacing pace();
    // True once the link is up; for tests and benchmarks.
    bool linked() const;

  private:
    struct link;

    enum class link_state { none, connecting, ready, broken };

    void acquire() noexcept;
    void release() noexcept;
    void ensure_link();
    void end_link() noexcept;
    void serve(int listener, std::string expected_id);
    bool answer_connect(int connection, const std::string& expected_id);
    void send_pings(int connection);
    void decided(bool connected) noexcept;  // the library's connect outcome, on its thread
    friend struct pacer_callbacks;

    std::mutex lifecycle_mutex_;           // serialises setting up and ending the link
    std::unique_ptr<link> link_;           // guarded by lifecycle_mutex_
    std::thread responder_;                // guarded by lifecycle_mutex_
    mutable std::mutex mutex_;             // state shared with the responder and the library
    std::condition_variable changed_;      // state_, waiters_ or stopping_ changed
    link_state state_ = link_state::none;  // guarded by mutex_
    bool library_decided_ = false;         // guarded by mutex_: connect outcome has arrived
    int waiters_ = 0;                      // guarded by mutex_
    bool stopping_ = false;                // guarded by mutex_
};

// Pacing through the container's pacer; does nothing when the container is gone or has none.
poll_pacer::pacing pace(const std::shared_ptr<libtavohelper::module::service_container>& container);

}  // namespace corvanis::monitoring_modules::mqtt
