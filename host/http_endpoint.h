#pragma once

#include <memory>
#include <string>

#include "host/metrics.h"
#include "host/status_board.h"

namespace corvanis::monitoring_modules::host {

struct listen_address {
    std::string host;  // as given: a name, an IPv4 address or an IPv6 address without brackets
    int port = 0;      // 0: any free port
    bool loopback() const;
};

// "ADDR:PORT", "[IPv6]:PORT" or ":PORT" (loopback). Throws host_error (exit 1).
listen_address parse_listen_address(const std::string& text);

// GET /metrics, /api/status and / on one small server with two workers, serving until
// destroyed. The board must outlive it.
class http_endpoint {
  public:
    // Binds at once; throws host_error (exit 3) when the address cannot be bound.
    http_endpoint(const listen_address& address, const status_board& board, probe_identity probe);
    ~http_endpoint();  // stops serving and joins every server thread
    http_endpoint(const http_endpoint&) = delete;
    http_endpoint& operator=(const http_endpoint&) = delete;

    int port() const;  // the bound port, also when 0 was asked

  private:
    struct impl;
    std::unique_ptr<impl> impl_;
};

}  // namespace corvanis::monitoring_modules::host
