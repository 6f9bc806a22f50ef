#pragma once

#include <functional>
#include <string>
#include <vector>

#include "liblog/log_interface.h"

namespace corvanis::monitoring_modules::libtavohelper::messaging {

// Anything a module sends to its host. serialize() gives one whole module
// message, ready for the host callback.
class tavo_message {
  public:
    virtual ~tavo_message();
    virtual std::vector<char> serialize() const = 0;
};

class module_information_message : public tavo_message {
  public:
    module_information_message(const std::string& description, bool load_languages)
        : description_(description), load_languages_(load_languages) {}
    std::vector<char> serialize() const override;

  private:
    std::string description_;
    bool load_languages_;
};

// Asks the host to keep one key of a sensor's persistent data.
class persistent_data : public tavo_message {
  public:
    persistent_data(int id, const std::string& key, const std::string& value)
        : id_(id), key_(key), value_(value) {}
    std::vector<char> serialize() const override;

  private:
    int id_;
    std::string key_;
    std::string value_;
};

enum class log_source { runtime, sensor };

class log_message : public tavo_message {
  public:
    log_message(log_source source, int sensor_id, liblog::severity level, std::string text)
        : source_(source), sensor_id_(sensor_id), level_(level), text_(std::move(text)) {}
    std::vector<char> serialize() const override;

  private:
    log_source source_;
    int sensor_id_;
    liblog::severity level_;
    std::string text_;
};

// Sends serialised messages to the host. Callable from any thread.
class message_service_interface {
  public:
    virtual ~message_service_interface();
    // Throws message_too_long for a message the callback cannot carry.
    virtual void send(const std::vector<char>& bytes) = 0;
    void send(const tavo_message& message) { send(message.serialize()); }
};

class message_service : public message_service_interface {
  public:
    explicit message_service(std::function<void(void*, unsigned long)> send_function)
        : send_function_(std::move(send_function)) {}
    using message_service_interface::send;
    void send(const std::vector<char>& bytes) override;

  private:
    std::function<void(void*, unsigned long)> send_function_;
};

}  // namespace corvanis::monitoring_modules::libtavohelper::messaging
