#include "mqtt/topic_filter_index.h"

#include <algorithm>
#include <array>
#include <functional>

#include "mqtt/topic_subscription.h"

namespace corvanis::monitoring_modules::mqtt {

namespace {

struct string_hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view s) const noexcept {
        return std::hash<std::string_view>{}(s);
    }
};

// A topic cut at "/", with for each level whether "+" may match it and whether "#" may match
// it and everything after. Small topics stay on the stack.
class topic_levels {
  public:
    explicit topic_levels(std::string_view topic) {
        std::size_t count = std::count(topic.begin(), topic.end(), '/') + 1;
        if (count > small_size) {
            big_levels_.resize(count);
            big_flags_.resize(count);
            levels_ = big_levels_.data();
            flags_ = big_flags_.data();
        }
        count_ = count;
        std::size_t start = 0;
        for (std::size_t i = 0; i < count; ++i) {
            const auto end = i + 1 == count ? topic.size() : topic.find('/', start);
            levels_[i] = topic.substr(start, end - start);
            flags_[i].plus = is_wildcard_level(levels_[i]);
            start = end + 1;
        }
        bool rest = true;
        for (std::size_t i = count; i-- > 0;) {
            rest = rest && flags_[i].plus;
            flags_[i].hash = rest;
        }
    }

    std::size_t size() const { return count_; }
    std::string_view operator[](std::size_t i) const { return levels_[i]; }
    bool plus_matches(std::size_t i) const { return flags_[i].plus; }
    bool hash_matches_from(std::size_t i) const { return flags_[i].hash; }

  private:
    struct flags {
        bool plus;
        bool hash;
    };
    static constexpr std::size_t small_size = 16;
    std::array<std::string_view, small_size> small_levels_;
    std::array<flags, small_size> small_flags_;
    std::vector<std::string_view> big_levels_;
    std::vector<flags> big_flags_;
    std::string_view* levels_ = small_levels_.data();
    flags* flags_ = small_flags_.data();
    std::size_t count_ = 0;
};

// A valid filter's levels: the path, and whether it ends in "#".
struct filter_path {
    std::vector<std::string_view> levels;
    bool multi_level = false;
};

filter_path split_filter(std::string_view filter) {
    filter_path path;
    std::size_t start = 0;
    while (true) {
        const auto end = filter.find('/', start);
        path.levels.push_back(filter.substr(start, end - start));
        if (end == std::string_view::npos) break;
        start = end + 1;
    }
    if (path.levels.back() == "#") {
        path.levels.pop_back();
        path.multi_level = true;
    }
    return path;
}

}  // namespace

struct topic_filter_index::node {
    std::unordered_map<std::string, std::unique_ptr<node>, string_hash, std::equal_to<>> literal;
    std::unique_ptr<node> plus;
    const entry* exact = nullptr;  // the filter ends at this level
    const entry* rest = nullptr;   // the filter is this path followed by "/#" ("#" at the root)

    bool empty() const { return literal.empty() && !plus && !exact && !rest; }

    node* child(std::string_view level) {
        if (level == "+") return plus.get();
        const auto it = literal.find(level);
        return it == literal.end() ? nullptr : it->second.get();
    }
    node& make_child(std::string_view level) {
        auto& slot = level == "+" ? plus : literal[std::string(level)];
        if (!slot) slot = std::make_unique<node>();
        return *slot;
    }
    void drop_child(std::string_view level) {
        if (level == "+") {
            plus.reset();
        } else if (const auto it = literal.find(level); it != literal.end()) {
            literal.erase(it);
        }
    }
};

topic_filter_index::topic_filter_index() : root_(std::make_unique<node>()) {}
// Children are released one by one: a filter of 65,535 bytes may nest 32,768 levels deep,
// too deep for the recursive destruction of unique_ptr.
topic_filter_index::~topic_filter_index() {
    std::vector<std::unique_ptr<node>> pending;
    pending.push_back(std::move(root_));
    while (!pending.empty()) {
        auto at = std::move(pending.back());
        pending.pop_back();
        for (auto& [level, child] : at->literal) pending.push_back(std::move(child));
        if (at->plus) pending.push_back(std::move(at->plus));
    }
}

topic_filter_index::entry& topic_filter_index::insert(const std::string& filter) {
    if (auto* existing = find(filter)) {
        return *existing;
    }
    auto made = std::make_unique<entry>();
    made->filter = filter;
    made->needs_check = !is_valid_topic_filter(filter);
    entry& e = *entries_.emplace(filter, std::move(made)).first->second;
    if (e.needs_check) {
        checked_.push_back(&e);
        return e;
    }
    const auto path = split_filter(e.filter);
    node* at = root_.get();
    for (const auto level : path.levels) {
        at = &at->make_child(level);
    }
    (path.multi_level ? at->rest : at->exact) = &e;
    return e;
}

topic_filter_index::entry* topic_filter_index::find(const std::string& filter) {
    const auto it = entries_.find(filter);
    return it == entries_.end() ? nullptr : it->second.get();
}

void topic_filter_index::erase(const std::string& filter) {
    const auto it = entries_.find(filter);
    if (it == entries_.end()) {
        return;
    }
    const entry* e = it->second.get();
    if (e->needs_check) {
        checked_.erase(std::find(checked_.begin(), checked_.end(), e));
    } else {
        const auto path = split_filter(e->filter);
        std::vector<node*> trail{root_.get()};
        for (const auto level : path.levels) {
            trail.push_back(trail.back()->child(level));
        }
        (path.multi_level ? trail.back()->rest : trail.back()->exact) = nullptr;
        // Drop the nodes this filter alone kept alive, deepest first.
        for (std::size_t i = path.levels.size(); i > 0 && trail[i]->empty(); --i) {
            trail[i - 1]->drop_child(path.levels[i - 1]);
        }
    }
    entries_.erase(it);
}

void topic_filter_index::match_impl(std::string_view topic, visit_fn visit, void* context) const {
    for (const entry* e : checked_) {
        visit(*e, context);
    }
    if (root_->empty()) {
        return;
    }
    // Depth first with an explicit stack: deep topics must not deepen the call stack.
    const topic_levels levels(topic);
    std::vector<std::pair<const node*, std::size_t>> pending{{root_.get(), 0}};
    while (!pending.empty()) {
        const auto [at, depth] = pending.back();
        pending.pop_back();
        if (depth == levels.size()) {
            if (at->exact) visit(*at->exact, context);
            continue;
        }
        if (at->rest && levels.hash_matches_from(depth)) visit(*at->rest, context);
        if (const auto it = at->literal.find(levels[depth]); it != at->literal.end()) {
            pending.emplace_back(it->second.get(), depth + 1);
        }
        if (at->plus && levels.plus_matches(depth)) {
            pending.emplace_back(at->plus.get(), depth + 1);
        }
    }
}

}  // namespace corvanis::monitoring_modules::mqtt
