#pragma once

#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <typeindex>
#include <unordered_map>
#include <unordered_set>

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

struct keyed_family_base {
    virtual ~keyed_family_base() = default;
};

// A keyed family: never owns its instances, it only finds live ones. An instance's key copy
// goes with the instance; only the key's hash stays, so that it is never revived.
template <class T, class Key, class Hash, class Equal>
struct keyed_family : keyed_family_base {
    std::mutex mutex;
    std::unordered_map<Key, std::weak_ptr<T>, Hash, Equal> live;  // guarded by mutex
    // Constructions under way; equal keys wait for their outcome.
    std::unordered_map<Key, std::shared_future<std::shared_ptr<T>>, Hash, Equal>
        pending;                              // guarded by mutex
    std::unordered_set<std::size_t> retired;  // guarded by mutex

    // Runs after an instance's destructor: forgets every key whose instance has gone.
    void retire_expired() {
        std::lock_guard lock(mutex);
        std::erase_if(live, [&](const auto& entry) {
            if (!entry.second.expired()) return false;
            retired.insert(Hash{}(entry.first));
            return true;
        });
    }
    bool is_retired(const Key& key) const { return retired.count(Hash{}(key)) != 0; }
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

  private:
    std::unordered_map<std::type_index, std::unique_ptr<instance_wrapper_base>> instances_;
};

// Factories and cached services shared by the module, the dispatcher and every
// sensor. Thread-safe. Single instances and factories sit behind one short lock; each
// keyed family has its own, never held across a factory call, so a keyed construction
// (which may wait on the network) blocks neither a logger lookup nor other keys.
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

    // The live instance for an equal key, or a new one from the factory taking the key by
    // value. Constructions for different keys run in parallel; a request for a key whose
    // construction is under way waits for it and shares its instance or its exception. A
    // factory exception leaves nothing stored. A key whose instance has gone is never
    // revived: later instances for it are handed out unshared. Only while its instance lives
    // does the family keep a copy of a key.
    template <class T, class Key, class Hash = std::hash<Key>, class Equal = std::equal_to<void>>
    std::shared_ptr<T> acquire(const Key& key) {
        using family_type = keyed_family<T, Key, Hash, Equal>;
        const auto family = keyed<T, Key, Hash, Equal>();
        std::unique_lock lock(family->mutex);
        if (const auto it = family->live.find(key); it != family->live.end()) {
            if (auto live = it->second.lock()) {
                return live;
            }
        }
        if (const auto it = family->pending.find(key); it != family->pending.end()) {
            const auto outcome = it->second;
            lock.unlock();
            return outcome.get();
        }
        const bool revived = family->is_retired(key) || family->live.count(key) != 0;
        lock.unlock();
        std::function<std::unique_ptr<T>(Key)> factory;
        {
            std::lock_guard services(mutex_);
            factory = factories_.get<T, Key>();
        }
        if (revived) {
            return std::shared_ptr<T>(factory(Key(key)));
        }
        std::promise<std::shared_ptr<T>> outcome;
        lock.lock();
        if (!family->pending.try_emplace(key, outcome.get_future().share()).second) {
            const auto other = family->pending.find(key)->second;  // a racer got there first
            lock.unlock();
            return other.get();
        }
        lock.unlock();
        std::shared_ptr<T> made;
        try {
            made = std::shared_ptr<T>(factory(Key(key)).release(),
                                      [weak = std::weak_ptr<family_type>(family)](T* instance) {
                                          delete instance;
                                          if (const auto f = weak.lock()) f->retire_expired();
                                      });
        } catch (...) {
            lock.lock();
            family->pending.erase(key);
            lock.unlock();
            outcome.set_exception(std::current_exception());
            throw;
        }
        lock.lock();
        family->pending.erase(key);
        family->live.try_emplace(key, made);
        lock.unlock();
        outcome.set_value(made);
        return made;
    }

    // The live instance for an equal key; throws instance_not_available_key otherwise.
    template <class T, class Key, class Hash = std::hash<Key>, class Equal = std::equal_to<void>>
    std::shared_ptr<T> get_keyed(const Key& key) {
        const auto family = keyed<T, Key, Hash, Equal>();
        {
            std::lock_guard lock(family->mutex);
            if (const auto it = family->live.find(key); it != family->live.end()) {
                if (auto live = it->second.lock()) {
                    return live;
                }
            }
        }
        throw utils::exceptions::service_container_error(
            messages::instance_not_available_key()(type_name<T>(), type_name<Key>()));
    }

  private:
    template <class T, class Key, class Hash, class Equal>
    std::shared_ptr<keyed_family<T, Key, Hash, Equal>> keyed() {
        using family_type = keyed_family<T, Key, Hash, Equal>;
        std::lock_guard lock(mutex_);
        auto& slot = families_[std::type_index(typeid(family_type))];
        if (!slot) {
            slot = std::make_shared<family_type>();
        }
        return std::static_pointer_cast<family_type>(slot);
    }

    mutable std::mutex mutex_;  // guards factories_, instances_ and families_
    factory_store factories_;
    instance_store instances_;
    std::unordered_map<std::type_index, std::shared_ptr<keyed_family_base>> families_;
};

}  // namespace corvanis::monitoring_modules::libtavohelper::module
