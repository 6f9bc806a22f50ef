#pragma once

#include <optional>
#include <string>

#include "host/settings.h"

namespace corvanis::monitoring_modules::host {

struct pem_fault {
    std::string key;     // the setting at fault
    std::string reason;  // never holds the setting's text or a password
};

// The kind's TLS material among `values` (those in use), checked before anything connects: every
// certificate setting holds PEM certificates OpenSSL can read, the client key opens (with its
// password when it is encrypted) and belongs to the client certificate.
std::optional<pem_fault> check_pem_settings(const settings_schema& schema,
                                            const settings_map& values);

}  // namespace corvanis::monitoring_modules::host
