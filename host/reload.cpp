#include "host/reload.h"

#include <set>

namespace corvanis::monitoring_modules::host {

namespace {

bool same_limits(const std::map<std::string, channel_limits>& a,
                 const std::map<std::string, channel_limits>& b) {
    const auto same = [](const channel_limits& x, const channel_limits& y) {
        return x.warning_min == y.warning_min && x.warning_max == y.warning_max &&
               x.error_min == y.error_min && x.error_max == y.error_max;
    };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [&](const auto& x, const auto& y) {
        return x.first == y.first && same(x.second, y.second);
    });
}

// What the module instance was created with.
bool same_instance(const planned_sensor& a, const planned_sensor& b) {
    return a.schema->kind == b.schema->kind && a.values == b.values && a.interval == b.interval;
}

// What only the host makes of the results.
bool same_judgement(const planned_sensor& a, const planned_sensor& b) {
    return a.name == b.name && a.stale_after == b.stale_after && same_limits(a.limits, b.limits);
}

}  // namespace

reload_plan compare_plans(const std::vector<planned_sensor>& running,
                          const std::vector<planned_sensor>& wanted) {
    std::map<int, const planned_sensor*> old;
    for (const auto& p : running) old[p.id] = &p;
    reload_plan plan;
    std::set<int> seen;
    for (const auto& p : wanted) {
        seen.insert(p.id);
        const auto it = old.find(p.id);
        if (it == old.end()) {
            plan.added.push_back(p);
        } else if (!same_instance(*it->second, p)) {
            plan.recreated.push_back(p);
        } else if (!same_judgement(*it->second, p)) {
            plan.relabelled.push_back(p);
        } else {
            plan.kept.push_back(p.id);
        }
    }
    for (const auto& [id, p] : old) {
        if (!seen.contains(id)) plan.removed.push_back(id);
    }
    return plan;
}

std::vector<planned_sensor> sensor_set::plans() const {
    std::lock_guard lock(mutex_);
    std::vector<planned_sensor> plans;
    for (const auto& [id, runner] : runners_) plans.push_back(runner->plan());
    return plans;
}

sensor_runner& sensor_set::at(int id) {
    std::lock_guard lock(mutex_);
    return *runners_.at(id);
}

reload_plan sensor_set::apply(const std::vector<planned_sensor>& wanted, scan_scheduler& scheduler,
                              std::stop_token stop) {
    auto plan = compare_plans(plans(), wanted);
    // Out of the scheduler first, so no scan uses the instance or the runner while they go.
    const auto take_out = [&](int id) {
        scheduler.remove(id);
        probe_.destroy_sensor(id);
        std::lock_guard lock(mutex_);
        runners_.erase(id);
    };
    const auto put_in = [&](const planned_sensor& p) {
        {
            std::lock_guard lock(mutex_);
            runners_[p.id] = std::make_unique<sensor_runner>(probe_, p, language_);
        }
        // Created on a worker at its first scan, which is due at once.
        scheduler.add(p.id, p.interval);
    };
    for (const int id : plan.removed) {
        if (stop.stop_requested()) return plan;
        take_out(id);
    }
    for (const auto& p : plan.recreated) {
        if (stop.stop_requested()) return plan;
        take_out(p.id);
        put_in(p);
    }
    for (const auto& p : plan.relabelled) {
        auto& runner = at(p.id);
        scheduler.while_idle(p.id, [&] { runner.relabel(p); });
    }
    for (const auto& p : plan.added) {
        if (stop.stop_requested()) return plan;
        put_in(p);
    }
    return plan;
}

std::string describe_reload(const std::string& config, const reload_plan& plan) {
    const auto ids = [](const std::vector<int>& list) {
        std::string text;
        for (const int id : list) text += (text.empty() ? " (" : ", ") + std::to_string(id);
        return text.empty() ? text : text + ")";
    };
    const auto ids_of = [&](const std::vector<planned_sensor>& list) {
        std::vector<int> numbers;
        for (const auto& p : list) numbers.push_back(p.id);
        return ids(numbers);
    };
    return "reloaded " + config + ": " + std::to_string(plan.kept.size()) + " unchanged" +
           ids(plan.kept) + ", " + std::to_string(plan.relabelled.size()) + " updated in place" +
           ids_of(plan.relabelled) + ", " + std::to_string(plan.recreated.size()) + " re-created" +
           ids_of(plan.recreated) + ", " + std::to_string(plan.removed.size()) + " removed" +
           ids(plan.removed) + ", " + std::to_string(plan.added.size()) + " added" +
           ids_of(plan.added);
}

}  // namespace corvanis::monitoring_modules::host
