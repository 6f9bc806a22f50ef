#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "mqtt/mqtt_client_interface.h"

namespace corvanis::monitoring_modules::mqtt {

// The client's subscription registry: filters with the subscriptions registered under them,
// indexed by topic level so that finding the filters a topic matches costs a few lookups per
// level instead of a pass over every filter. The matching rules are those of topic_matches;
// no operation recurses, whatever the depth of a filter or topic. Not synchronised.
class topic_filter_index {
  public:
    struct entry {
        std::string filter;
        std::vector<std::weak_ptr<topic_subscription_interface>> subscriptions;
        // The filter places its wildcards where MQTT does not allow them (only a subscription
        // of another kind brings one): the level rules cannot decide it, so the caller asks
        // the subscription.
        bool needs_check = false;
    };

    topic_filter_index();
    ~topic_filter_index();
    topic_filter_index(const topic_filter_index&) = delete;
    topic_filter_index& operator=(const topic_filter_index&) = delete;

    // The filter's entry, created empty when absent.
    entry& insert(const std::string& filter);
    entry* find(const std::string& filter);
    void erase(const std::string& filter);
    std::size_t size() const { return entries_.size(); }

    // f(entry&) for every filter, in no particular order.
    template <class F>
    void for_each(F&& f) {
        for (auto& [filter, e] : entries_) f(*e);
    }

    // visit(const entry&) for every filter that matches the topic, and for every filter with
    // needs_check set. Each entry is visited once.
    template <class Visit>
    void match(std::string_view topic, Visit&& visit) const {
        match_impl(
            topic, [](const entry& e, void* v) { (*static_cast<Visit*>(v))(e); }, &visit);
    }

  private:
    struct node;
    using visit_fn = void (*)(const entry&, void*);
    void match_impl(std::string_view topic, visit_fn visit, void* context) const;

    std::unordered_map<std::string, std::unique_ptr<entry>> entries_;
    std::unique_ptr<node> root_;
    std::vector<const entry*> checked_;  // entries with needs_check
};

}  // namespace corvanis::monitoring_modules::mqtt
