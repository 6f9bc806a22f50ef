#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <typeindex>
#include <unordered_map>

#include "libtavohelper/errors.h"

namespace corvanis::monitoring_modules::libtavohelper::module {

// Readable name of a type for error messages.
std::string type_name(const std::type_info& type);

template <class T>
std::string type_name() {
    return type_name(typeid(T));
}

struct factory_wrapper_base {
    virtual ~factory_wrapper_base();
};

template <class F>
struct factory_wrapper : factory_wrapper_base {
    explicit factory_wrapper(F f) : factory(std::move(f)) {}
    F factory;
};

// Map from an interface type to one factory. Not synchronised: service_container locks.
class factory_store {
  public:
    // Throws already_contains_factory when the interface has a factory.
    template <class Interface, class... Args>
    void register_factory(std::function<std::unique_ptr<Interface>(Args...)> factory) {
        const std::type_index key(typeid(Interface));
        if (factories_.count(key) != 0) {
            throw utils::exceptions::service_container_error(
                messages::already_contains_factory()(type_name<Interface>()));
        }
        factories_.emplace(
            key, std::make_unique<factory_wrapper<decltype(factory)>>(std::move(factory)));
    }

    template <class Interface>
    bool contains() const {
        return factories_.count(std::type_index(typeid(Interface))) != 0;
    }

    // Throws factory_not_available when no factory of exactly this signature exists.
    template <class Interface, class... Args>
    std::function<std::unique_ptr<Interface>(Args...)> get() const {
        using F = std::function<std::unique_ptr<Interface>(Args...)>;
        const auto it = factories_.find(std::type_index(typeid(Interface)));
        const auto* wrapper = it == factories_.end()
                                  ? nullptr
                                  : dynamic_cast<const factory_wrapper<F>*>(it->second.get());
        if (wrapper == nullptr) {
            throw utils::exceptions::service_container_error(
                messages::factory_not_available()(type_name<Interface>()));
        }
        return wrapper->factory;
    }

  private:
    std::unordered_map<std::type_index, std::unique_ptr<factory_wrapper_base>> factories_;
};

struct instance_wrapper_base {
    virtual ~instance_wrapper_base();
};

template <class T>
struct instance_wrapper : instance_wrapper_base {
    explicit instance_wrapper(std::shared_ptr<T> i) : instance(std::move(i)) {}
    std::shared_ptr<T> instance;
};

// A keyed family: the store never owns these instances, it only finds live ones.
template <class T, class Key, class Hash, class Equal>
struct instance_map_wrapper : instance_wrapper_base {
    std::unordered_map<Key, std::weak_ptr<T>, Hash, Equal> instances;
};

// Map from an interface type to one shared instance or to a keyed family.
// Not synchronised: service_container locks.
class instance_store {
  public:
    template <class T>
    void add(std::shared_ptr<T> instance) {
        const std::type_index key(typeid(T));
        if (instances_.count(key) != 0) {
            throw utils::exceptions::service_container_error(
                messages::already_contains_instance()(type_name<T>()));
        }
        instances_.emplace(key, std::make_unique<instance_wrapper<T>>(std::move(instance)));
    }

    // Empty when absent.
    template <class T>
    std::shared_ptr<T> find() const {
        const auto it = instances_.find(std::type_index(typeid(T)));
        if (it == instances_.end()) {
            return nullptr;
        }
        return static_cast<const instance_wrapper<T>&>(*it->second).instance;
    }

    template <class T>
    std::shared_ptr<T> get() const {
        auto instance = find<T>();
        if (!instance) {
            throw utils::exceptions::service_container_error(
                messages::instance_not_available()(type_name<T>()));
        }
        return instance;
    }

    template <class T, class Key, class Hash, class Equal>
    instance_map_wrapper<T, Key, Hash, Equal>& family() {
        using W = instance_map_wrapper<T, Key, Hash, Equal>;
        auto& slot = instances_[std::type_index(typeid(W))];
        if (!slot) {
            slot = std::make_unique<W>();
        }
        return static_cast<W&>(*slot);
    }

  private:
    std::unordered_map<std::type_index, std::unique_ptr<instance_wrapper_base>> instances_;
};

// Factories and cached services shared by the module, the dispatcher and every
// sensor. Thread-safe. Single instances and factories sit behind one short lock;
// keyed families behind a second one that is held across the factory call, so a
// keyed construction (which may wait on the network) never blocks a logger lookup.
class service_container {
  public:
    template <class Interface, class... Args>
    void register_factory(std::function<std::unique_ptr<Interface>(Args...)> factory) {
        std::lock_guard lock(mutex_);
        factories_.register_factory<Interface, Args...>(std::move(factory));
    }

    template <class Interface, class... Args>
    std::unique_ptr<Interface> create(Args... args) const {
        std::function<std::unique_ptr<Interface>(Args...)> factory;
        {
            std::lock_guard lock(mutex_);
            factory = factories_.get<Interface, Args...>();
        }
        return factory(std::move(args)...);
    }

    template <class T>
    void add_instance(std::shared_ptr<T> instance) {
        std::lock_guard lock(mutex_);
        instances_.add<T>(std::move(instance));
    }

    // Throws instance_not_available when absent.
    template <class T>
    std::shared_ptr<T> get_instance() const {
        std::lock_guard lock(mutex_);
        return instances_.get<T>();
    }

    template <class T>
    std::shared_ptr<T> find_instance() const {
        std::lock_guard lock(mutex_);
        return instances_.find<T>();
    }

    // The cached instance, built through the argument-less factory on first request.
    template <class T>
    std::shared_ptr<T> get_or_create() {
        std::lock_guard lock(mutex_);
        if (auto existing = instances_.find<T>()) {
            return existing;
        }
        std::shared_ptr<T> made = factories_.get<T>()();
        instances_.add<T>(made);
        return made;
    }

    // The live instance for an equal key, or a new one from the factory taking the
    // key by value. Lookup and construction are serialised; a factory exception
    // leaves nothing stored. An entry whose instance has gone is never replaced:
    // later instances for that key are handed out unshared.
    template <class T, class Key, class Hash = std::hash<Key>, class Equal = std::equal_to<void>>
    std::shared_ptr<T> acquire(const Key& key) {
        std::lock_guard keyed(keyed_mutex_);
        std::function<std::unique_ptr<T>(Key)> factory;
        {
            std::lock_guard lock(mutex_);
            auto& map = instances_.family<T, Key, Hash, Equal>().instances;
            if (const auto it = map.find(key); it != map.end()) {
                if (auto live = it->second.lock()) {
                    return live;
                }
            }
            factory = factories_.get<T, Key>();
        }
        std::shared_ptr<T> made = factory(Key(key));
        std::lock_guard lock(mutex_);
        instances_.family<T, Key, Hash, Equal>().instances.try_emplace(key, made);
        return made;
    }

    // The live instance for an equal key; throws instance_not_available_key otherwise.
    template <class T, class Key, class Hash = std::hash<Key>, class Equal = std::equal_to<void>>
    std::shared_ptr<T> get_keyed(const Key& key) {
        std::lock_guard lock(mutex_);
        auto& map = instances_.family<T, Key, Hash, Equal>().instances;
        if (const auto it = map.find(key); it != map.end()) {
            if (auto live = it->second.lock()) {
                return live;
            }
        }
        throw utils::exceptions::service_container_error(
            messages::instance_not_available_key()(type_name<T>(), type_name<Key>()));
    }

  private:
    mutable std::mutex mutex_;                  // guards factories_ and instances_
    mutable std::recursive_mutex keyed_mutex_;  // serialises keyed acquisition
    factory_store factories_;
    instance_store instances_;
};

}  // namespace corvanis::monitoring_modules::libtavohelper::module
