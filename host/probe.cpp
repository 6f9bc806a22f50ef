#include "host/probe.h"

#include <cmath>
#include <condition_variable>
#include <iostream>

#include "host/errors.h"
#include "host/log_style.h"
#include "host/output.h"

namespace corvanis::monitoring_modules::host {

namespace {

// Without --log-level only the gravest lines: errors and warnings of sensors reach the
// operator through their results, and printing them here too repeated every failure.
constexpr int default_log_level = 2;

}  // namespace

probe::probe(const global_options& options, const std::string& state_path)
    : log_level_(options.log_level.value_or(default_log_level)),
      state_(std::make_unique<state_store>(state_path)),
      inbox_(
          [this](const wire::PersistentData& data) {
              try {
                  {
                      std::lock_guard lock(sensors_mutex_);
                      kept_[data.sensor_id()] = std::chrono::system_clock::now();
                  }
                  state_->put(data.sensor_id(), data.key(), data.value());
              } catch (const std::exception& e) {
                  std::lock_guard lock(log_mutex_);
                  std::cerr << "tavo-probe: sensor " << data.sensor_id() << ": cannot keep \""
                            << data.key() << "\": " << e.what() << std::endl;
              }
          },
          [this](const wire::Log& log) { print_log(log); }) {
    const auto path = options.module_path.empty() ? default_module_path()
                                                  : std::filesystem::path(options.module_path);
    session_ = std::make_unique<module_session>(path, inbox_);
    if (options.log_level) {
        if (const int code = session_->set_log_threshold(*options.log_level); code != 0) {
            std::lock_guard lock(log_mutex_);
            std::cerr << "tavo-probe: the module did not take the log level ("
                      << describe_result_code(code) << "); showing what it sends" << std::endl;
        }
    }
    doc_ = std::make_unique<description>(description::parse(session_->module_information()));
    language_ = doc_->pick_language(options.language);
}

probe::~probe() {
    destroy_all();
}

void probe::print_log(const wire::Log& log) {
    const int severity = log.line().severity();
    if (severity > log_level_) return;
    const std::string source = log.source() == wire::Log::SENSOR
                                   ? "sensor " + std::to_string(log.sensor_id())
                                   : std::string("module");
    std::lock_guard lock(log_mutex_);
    std::cerr << log_line(severity, (journal_logs() ? "" : clock_now() + " ") + source + " " +
                                        severity_name(severity) + ": " + log.line().text())
              << std::endl;
}

std::optional<message_view> probe::try_create_sensor(int id, const settings_schema& schema,
                                                     const settings_map& values) {
    auto block = make_block(schema, values);
    for (const auto& [key, value] : state_->load(id, schema.kind))
        (*block.mutable_persistent_data())[key] = value;
    const auto outcome = session_->create_sensor(id, block);
    if (outcome.code != 0) {
        if (outcome.message && outcome.message->has_message()) {
            const auto& m = outcome.message->message();
            return message_view{m.key(), render_text(m), {m.args().begin(), m.args().end()}};
        }
        return message_view{"", describe_result_code(outcome.code), {}};
    }
    std::lock_guard lock(sensors_mutex_);
    sensors_[id] = schema.kind;
    kept_.erase(id);
    return std::nullopt;
}

void probe::create_sensor(int id, const settings_schema& schema, const settings_map& values) {
    if (const auto reason = try_create_sensor(id, schema, values)) {
        throw host_error("sensor " + std::to_string(id) + " (" + schema.kind +
                         ") could not be created: " + reason->text);
    }
}

std::optional<std::chrono::system_clock::time_point> probe::last_kept(int id) const {
    std::lock_guard lock(sensors_mutex_);
    const auto it = kept_.find(id);
    if (it == kept_.end()) return std::nullopt;
    return it->second;
}

void probe::destroy_sensor(int id) {
    {
        std::lock_guard lock(sensors_mutex_);
        if (sensors_.erase(id) == 0) return;
    }
    session_->destroy_sensor(id);
}

void probe::destroy_all() {
    std::map<int, std::string> doomed;
    {
        std::lock_guard lock(sensors_mutex_);
        doomed.swap(sensors_);
    }
    for (const auto& [id, kind] : doomed) session_->destroy_sensor(id);
}

std::string probe::kind_of(int id) const {
    std::lock_guard lock(sensors_mutex_);
    const auto it = sensors_.find(id);
    return it == sensors_.end() ? std::string() : it->second;
}

std::vector<settings_layer> settings_layers(const description& doc, const probe_config* config,
                                            const std::vector<setting_pair>* own,
                                            const std::string& own_origin,
                                            const settings_options& cli,
                                            const setting_origins* own_where,
                                            bool defaults_checked) {
    std::vector<settings_layer> layers;
    if (config != nullptr) {
        for (const auto& [key, value] : config->defaults) {
            if (defaults_checked) break;
            const auto at = config->defaults_where.find(key);
            const std::string where =
                at == config->defaults_where.end() ? config->name : at->second;
            try {
                if (is_known_anywhere(doc, key)) continue;
            } catch (const host_error& e) {
                throw host_error(where + ": defaults: " + e.what());
            }
            throw host_error(where +
                             ": defaults: no sensor, check or notification has a setting \"" + key +
                             "\"");
        }
        layers.push_back(
            {"defaults in " + config->name, config->defaults, true, config->defaults_where});
    }
    if (own != nullptr)
        layers.push_back({own_origin, *own, false, own_where ? *own_where : setting_origins{}});
    settings_layer command_line{"--set", {}, false};
    for (const auto& text : cli.sets)
        command_line.values.push_back(parse_assignment(text, "--set"));
    layers.push_back(std::move(command_line));
    settings_layer files{"--set-file", {}, false};
    for (const auto& text : cli.set_files) files.values.push_back(read_assignment_file(text));
    layers.push_back(std::move(files));
    return layers;
}

std::shared_ptr<const settings_schema> shared_checks::schema(const description& doc,
                                                             const std::string& name) {
    std::lock_guard lock(mutex_);
    auto& schema = schemas_[name];
    if (!schema) schema = std::make_shared<const settings_schema>(check_schema(doc, name));
    return schema;
}

std::string shared_checks::key(const std::string& name, const settings_map& values) {
    // Keys and values are joined with NULs, which no setting holds.
    std::string key = name;
    for (const auto& [k, v] : values) {
        key += '\0';
        key += k;
        key += '\0';
        key += v;
    }
    return key;
}

bool shared_checks::passed_recently(const std::string& name, const settings_map& values) {
    const auto k = key(name, values);
    std::lock_guard lock(mutex_);
    const auto it = passes_.find(k);
    return it != passes_.end() && clock::now() - it->second < reuse_for_;
}

void shared_checks::passed(const std::string& name, const settings_map& values) {
    auto k = key(name, values);
    const auto now = clock::now();
    std::lock_guard lock(mutex_);
    std::erase_if(passes_, [&](const auto& p) { return now - p.second >= reuse_for_; });
    passes_[std::move(k)] = now;
}

std::chrono::steady_clock::duration seconds_to_duration(double seconds) {
    return std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(seconds));
}

run_limit::run_limit(std::stop_token signals, std::optional<double> seconds)
    : link_(std::move(signals), std::function<void()>([this] { source_.request_stop(); })) {
    if (!seconds) return;
    timer_ = std::jthread([this, limit = seconds_to_duration(*seconds)](std::stop_token cancelled) {
        std::mutex mutex;
        std::condition_variable_any never;
        std::unique_lock lock(mutex);
        never.wait_for(lock, cancelled, limit, [] { return false; });
        source_.request_stop();
    });
}

}  // namespace corvanis::monitoring_modules::host
