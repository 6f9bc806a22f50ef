#include "host/sensor_runner.h"

#include "host/localize.h"

#include <algorithm>
#include <iostream>
#include <memory>

#include "host/errors.h"
#include "host/reload.h"
#include "host/scheduler.h"

namespace corvanis::monitoring_modules::host {

namespace {

// Enough that twenty sensors on a broker that never answers do not hold back the others,
// few enough for a small process.
constexpr std::size_t max_workers = 32;
// Checks and creations, which wait on a broker, take at most half of them, so that the scans
// of sensors that exist start on time while thousands of others are still being created.
constexpr std::size_t max_creating = max_workers / 2;
// Creation attempts back off up to this, or the interval when that is longer.
constexpr auto longest_back_off = std::chrono::minutes(5);

// What the statistics sensor counts on channel 0, and the subscribe-custom sensor's
// own channel for the age of its last message.
constexpr const char* statistics_kind = "statistics_sensor";
constexpr int messages_channel = 0;
constexpr const char* message_age_channel = "Time Since Last Message";
constexpr const char* retain_setting =
    "subscribe_custom.connection_subscribe_custom.retain_last_message";

// The topic filter among a push sensor's settings, for texts.
std::string topic_of(const settings_map& values) {
    for (const auto& [key, value] : values) {
        if (key.size() > 6 && key.ends_with(".topic")) return value;
    }
    return "";
}

double shown(const channel_view& c) {
    return c.integer ? static_cast<double>(c.integer_value) : c.floating_value;
}

// The resolved values that differ from their defaults.
settings_map beyond_defaults(const settings_schema& schema, settings_map values) {
    for (const auto& [key, value] : default_values(schema)) {
        if (const auto it = values.find(key); it != values.end() && it->second == value)
            values.erase(it);
    }
    return values;
}

}  // namespace

std::shared_ptr<const settings_schema> schema_cache::of(const std::string& kind) {
    auto& schema = by_kind_[kind];
    if (!schema) schema = std::make_shared<const settings_schema>(sensor_schema(doc_, kind));
    return schema;
}

planned_sensor plan_sensor(schema_cache& schemas, int id, const std::string& kind,
                           const std::vector<settings_layer>& layers) {
    planned_sensor planned{id, schemas.of(kind), {}, {}, {}, {}, {}};
    planned.values = resolve_settings(*planned.schema, layers);
    validate_settings(*planned.schema, planned.values);
    planned.interval = std::chrono::seconds(std::stoi(planned.values.at("interval")));
    // Thousands of plans, copied while a run starts or reloads, would each hold every default.
    planned.values = beyond_defaults(*planned.schema, std::move(planned.values));
    return planned;
}

planned_sensor plan_sensor(const description& doc, int id, const std::string& kind,
                           const std::vector<settings_layer>& layers) {
    schema_cache schemas(doc);
    return plan_sensor(schemas, id, kind, layers);
}

planned_sensor plan_sensor(schema_cache& schemas, const sensor_entry& entry,
                           const std::vector<settings_layer>& layers) {
    auto planned = plan_sensor(schemas, entry.id, entry.kind, layers);
    planned.name = entry.name;
    planned.limits = entry.limits;
    planned.stale_after = entry.stale_after;
    return planned;
}

planned_sensor plan_sensor(const description& doc, const sensor_entry& entry,
                           const std::vector<settings_layer>& layers) {
    schema_cache schemas(doc);
    return plan_sensor(schemas, entry, layers);
}

settings_map resolved_values(const planned_sensor& plan) {
    auto values = default_values(*plan.schema);
    for (const auto& [key, value] : plan.values) values.insert_or_assign(key, value);
    return values;
}

sensor_runner::sensor_runner(probe& p, planned_sensor plan, std::string language)
    : probe_(p), plan_(std::move(plan)), language_(std::move(language)) {
    if (const auto* kind = probe_.doc().find_sensor(plan_.schema->kind)) {
        // The statistics sensor counts messages between scans without being marked so.
        push_ = kind->push || kind->name == statistics_kind;
        required_checks_ = kind->required_checks;
    }
    const auto values = resolved_values(plan_);
    topic_ = topic_of(values);
    const auto retain = values.find(retain_setting);
    dismisses_ = retain != values.end() && retain->second == "dismiss";
}

void sensor_runner::relabel(const planned_sensor& plan) {
    plan_.name = plan.name;
    plan_.limits = plan.limits;
    plan_.stale_after = plan.stale_after;
}

scan_view sensor_runner::base_view() const {
    scan_view view;
    view.sensor_id = plan_.id;
    view.kind = plan_.schema->kind;
    const auto* kind = probe_.doc().find_sensor(plan_.schema->kind);
    view.display = kind != nullptr && !kind->display.empty() ? kind->display : view.kind;
    view.name = plan_.name;
    view.time = std::chrono::system_clock::now();
    return view;
}

scan_view sensor_runner::failure() const {
    auto view = base_view();
    view.response_code = 3;
    view.error = true;
    view.state = "error";
    view.message = failure_;
    return view;
}

bool sensor_runner::required_checks_pass(const settings_map& sensor_values) {
    settings_layer sensor_settings{"the settings of sensor " + std::to_string(plan_.id),
                                   {sensor_values.begin(), sensor_values.end()},
                                   true};
    for (const auto& name : required_checks_) {
        try {
            auto& checks = probe_.checks();
            const auto schema = checks.schema(probe_.doc(), name);
            const auto values = resolve_settings(*schema, {sensor_settings});
            if (checks.passed_recently(name, values)) continue;
            // The sensor's id serves as the check's, so that checks of several sensors at
            // once keep their results apart.
            const auto outcome = probe_.module().check(plan_.id, make_block(*schema, values));
            if (outcome.code == 0 && outcome.message && outcome.message->success()) {
                checks.passed(name, values);
                continue;
            }
            if (outcome.message && outcome.message->has_message()) {
                const auto& m = outcome.message->message();
                failure_ = {m.key(), render_text(m), {m.args().begin(), m.args().end()}};
            } else {
                failure_ = {"",
                            "the required check " + name + " failed (" +
                                describe_result_code(outcome.code) + ")",
                            {}};
            }
        } catch (const std::exception& e) {
            failure_ = {"", "the required check " + name + " could not run: " + e.what(), {}};
        }
        return false;
    }
    return true;
}

sensor_runner::readiness sensor_runner::ensure_created() {
    if (created_) return readiness::created;
    const auto now = clock::now();
    if (now < next_attempt_) return readiness::waiting;
    const auto values = resolved_values(plan_);
    if (!required_checks_pass(values)) {
        next_attempt_ = now;
        return readiness::check_failed;
    }
    if (auto reason = probe_.try_create_sensor(plan_.id, *plan_.schema, values)) {
        failure_ = std::move(*reason);
        ++failed_creations_;
        const auto cap = std::max<clock::duration>(plan_.interval, longest_back_off);
        auto delay = plan_.interval;
        for (int i = 1; i < failed_creations_ && delay < cap; ++i) delay *= 2;
        next_attempt_ = now + std::min(delay, cap);
        return readiness::creation_failed;
    }
    created_ = true;
    failed_creations_ = 0;
    last_message_ = std::chrono::system_clock::now();
    try {
        counters_ = counter_memory(probe_.state().load_counters(plan_.id));
    } catch (const std::exception& e) {
        std::cerr << "tavo-probe: sensor " << plan_.id << ": " << e.what() << std::endl;
    }
    return readiness::created;
}

scan_view sensor_runner::next_result() {
    const auto started = clock::now();
    if (ensure_created() == readiness::created) return scan();
    auto view = failure();
    view.duration = clock::now() - started;
    return view;
}

scan_view sensor_runner::scan() {
    const auto started = clock::now();
    auto result = probe_.module().scan(plan_.id);
    localize(result, probe_.doc(), language_);
    auto view = make_scan_view(result, plan_.schema->kind, &probe_.doc());
    view.duration = clock::now() - started;
    view.name = plan_.name;
    if (const auto changed = counters_.apply(view); !changed.empty()) {
        try {
            probe_.state().put_counters(plan_.id, changed);
        } catch (const std::exception& e) {
            std::cerr << "tavo-probe: sensor " << plan_.id << ": " << e.what() << std::endl;
        }
    }
    // An empty result of a push sensor means nothing new has come: not a reason for green.
    if (push_ && view.response_code == 0 && view.channels.empty() && !view.message) {
        view.state = worse_state(view.state, "unknown");
        if (heard_any_) {
            const auto since = rfc3339_utc(last_message_);
            view.message = message_view{"host.no_new_message",
                                        host_text("no_new_message", language_, {topic_, since}),
                                        {topic_, since}};
        } else {
            view.message = message_view{
                "host.no_message_yet", host_text("no_message_yet", language_, {topic_}), {topic_}};
        }
    }
    judge_staleness(view);
    apply_limits(view, plan_.limits, language_);
    return view;
}

void sensor_runner::judge_staleness(scan_view& view) {
    if (!push_) return;
    const auto heard = [&](std::chrono::system_clock::time_point when) {
        last_message_ = std::max(last_message_, when);
        heard_any_ = true;
    };
    // The subscribe-custom sensor keeps data for each new message it scans.
    if (const auto kept = probe_.last_kept(plan_.id); kept && kept != kept_seen_) {
        kept_seen_ = kept;
        heard(*kept);
    }
    for (const auto& c : view.channels) {
        if (!c.has_value) continue;
        if (c.name == message_age_channel) {
            heard(view.time - std::chrono::duration_cast<std::chrono::system_clock::duration>(
                                  std::chrono::duration<double>(std::max(0.0, shown(c)))));
        } else if (view.kind == statistics_kind ? c.id == messages_channel && shown(c) > 0
                                                : dismisses_ && !view.error) {
            // Values of a sensor that keeps no old message come from a new one.
            heard(view.time);
        }
    }
    if (!plan_.stale_after || view.time - last_message_ < *plan_.stale_after) return;
    view.state = "error";
    std::string text = host_text("stale", language_, {rfc3339_utc(last_message_)});
    if (view.message && !view.message->text.empty()) text += "; " + view.message->text;
    view.message = message_view{"host.stale", text, {rfc3339_utc(last_message_)}};
}

namespace {

// The board shows the sensors a reload left: removed ones go, new and re-created ones start
// over as not scanned yet; a new name shows with the next result.
void follow_reload(status_board& board, const reload_plan& done, const description& doc) {
    for (const int id : done.removed) board.remove_sensor(id);
    for (const auto* list : {&done.added, &done.recreated}) {
        for (const auto& sensor : *list) {
            const auto* kind = doc.find_sensor(sensor.schema->kind);
            board.add_sensor(sensor.id, sensor.name, sensor.schema->kind,
                             kind != nullptr ? kind->display : "");
        }
    }
}

}  // namespace

void run_sensors(probe& p, std::vector<planned_sensor> plan, result_printer& printer,
                 std::stop_token stop, const reload_source& reload, status_board* board) {
    sensor_set sensors(p, printer.style().language);
    // Creation happens on the workers too, so a sensor that takes its time to be checked or
    // created holds back only itself; creations take a part of the workers only.
    const auto creating = [&](int id) {
        try {
            return !sensors.at(id).created();
        } catch (const std::out_of_range&) {
            return false;  // not in the set: its scan only logs that
        }
    };
    scan_scheduler scheduler(
        max_workers,
        [&](int id) {
            try {
                auto& runner = sensors.at(id);
                const int failures = runner.creation_failures();
                const auto view = runner.next_result();
                if (board != nullptr) {
                    if (runner.creation_failures() > failures) board->count_creation_failure();
                    board->record(view);
                }
                printer.print(view, runner.plan().limits);
            } catch (const std::exception& e) {
                std::cerr << "tavo-probe: sensor " << id << ": " << e.what() << std::endl;
            }
        },
        creating, max_creating);
    sensors.apply(plan, scheduler);
    std::vector<planned_sensor>().swap(plan);  // the runners have their own copies
    // Reloads run one after the other on their own thread while the scans go on; it ends
    // before the scheduler and the sensors do, also when leaving by an exception.
    std::jthread reloader;
    if (reload.requests != nullptr) {
        reloader = std::jthread([&](std::stop_token ending) {
            while (reload.requests->wait(ending)) {
                // Each outcome is one line, written at once so module log lines cannot split it.
                std::string line = "tavo-probe: ";
                try {
                    const auto wanted = reload.load();
                    const auto done = sensors.apply(wanted, scheduler, ending);
                    if (board != nullptr) follow_reload(*board, done, p.doc());
                    line += ending.stop_requested()
                                ? "reload of " + reload.config + " cut short by the stop"
                                : describe_reload(reload.config, done);
                } catch (const std::exception& e) {
                    std::string why = e.what();
                    std::replace(why.begin(), why.end(), '\n', ' ');
                    line += "reload of " + reload.config +
                            " failed, the sensors run on as before: " + why;
                } catch (...) {
                    line += "reload of " + reload.config + " failed, the sensors run on as before";
                }
                std::cerr << line + "\n" << std::flush;
            }
        });
    }
    if (!stop.stop_requested()) scheduler.run(stop);
    reloader.request_stop();
    if (reloader.joinable()) reloader.join();
    p.destroy_all();
}

}  // namespace corvanis::monitoring_modules::host
