#pragma once

#include <TandrellCore/Platform/Export.h>
#include <TandrellCore/Platform/UserDefaults.h>
#include <TandrellCore/Utility/DefaultMapper.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace tandrell {

/// Names the signed-in user for every `UserDefault`.
class TANDRELL_API AppDefaultModule {
 public:
  using UserIdProvider = std::function<std::string()>;

  /// Set by the application at start-up and when the user changes; absent at first. Called on the
  /// thread that asks for a key, for every access. May be set from any thread.
  static void setUserIdProvider(UserIdProvider provider);
  static UserIdProvider userIdProvider();
};

/// The user part of a `UserDefault`'s key: the current user's identifier as it stands, or "default"
/// (with a debug log line) when there is no provider or its text is empty.
TANDRELL_API std::string currentUserKeyPart();

/// A typed handle on one stored value. It caches nothing: every access goes to the store, which is
/// shared. May be used from any thread; two threads that read an empty handle for the first time
/// at once ask the default-value provider once between them.
template <class T>
class DefaultStore : public std::enable_shared_from_this<DefaultStore<T>> {
 public:
  using DefaultValueProvider = std::function<std::optional<T>()>;

  DefaultStore(std::string name, std::shared_ptr<DefaultMapper<T>> mapper,
               std::shared_ptr<UserDefaults> userDefaults)
      : name(std::move(name)), mapper(std::move(mapper)), userDefaults_(std::move(userDefaults)) {}
  virtual ~DefaultStore() = default;

  /// The full key under which the value is stored.
  virtual std::string key() const { return name; }

  /// The stored value. Where there is none the default-value provider is asked, once in the life of
  /// the handle, and what it supplies is stored and returned.
  std::optional<T> value() {
    if (auto stored = mapper->getValue(key(), *userDefaults_)) return stored;
    if (!defaultValueProvider_ || didRequestDefaultValue_.exchange(true)) return std::nullopt;
    auto supplied = defaultValueProvider_();
    if (supplied) setValue(supplied);
    return supplied;
  }

  /// Stores the value, or removes the entry when it is absent.
  void setValue(const std::optional<T>& value) {
    if (value) {
      mapper->putValue(*value, key(), *userDefaults_);
    } else {
      userDefaults_->removeObject(key());
    }
  }

  /// Sets the provider of a value for an empty handle, before the handle is shared between threads.
  /// Returns this handle, as `with` made it, so that it can be kept.
  std::shared_ptr<DefaultStore> defaultValue(DefaultValueProvider provider) {
    defaultValueProvider_ = std::move(provider);
    return self();
  }

  /// Removes the entry, and returns this handle. A provider that was asked before is not asked
  /// again.
  std::shared_ptr<DefaultStore> clear() {
    setValue(std::nullopt);
    return self();
  }

  /// Without the user's part.
  const std::string name;
  const std::shared_ptr<DefaultMapper<T>> mapper;

 private:
  /// Owns the handle, where a shared pointer does; one on the stack stays its owner's.
  std::shared_ptr<DefaultStore> self() {
    const auto owner = this->weak_from_this().lock();
    return owner ? owner : std::shared_ptr<DefaultStore>(std::shared_ptr<void>(), this);
  }

  std::atomic<bool> didRequestDefaultValue_ = false;
  DefaultValueProvider defaultValueProvider_;
  std::shared_ptr<UserDefaults> userDefaults_;
};

/// A value shared by all users of the installation, under its bare name.
template <class T>
class AppDefault : public DefaultStore<T> {
 public:
  using DefaultStore<T>::DefaultStore;

  /// `AppDefault<bool>::with<EligibleDefaultMapper>("name", store)`: the mapper is named where it
  /// is used, because a type may suit several.
  template <template <class> class Mapper>
  static std::shared_ptr<AppDefault> with(std::string name, std::shared_ptr<UserDefaults> store) {
    return std::make_shared<AppDefault>(std::move(name), std::make_shared<Mapper<T>>(),
                                        std::move(store));
  }

  /// As `DefaultStore::defaultValue`.
  std::shared_ptr<AppDefault> defaultValue(
      typename DefaultStore<T>::DefaultValueProvider provider) {
    return std::static_pointer_cast<AppDefault>(DefaultStore<T>::defaultValue(std::move(provider)));
  }
};

/// A value of the signed-in user, under the user's identifier, a full stop and its name. A change
/// of user switches the handle at once; the entries of other users stay.
template <class T>
class UserDefault : public DefaultStore<T> {
 public:
  using DefaultStore<T>::DefaultStore;

  std::string key() const override { return currentUserKeyPart() + "." + DefaultStore<T>::key(); }

  /// As `AppDefault::with`.
  template <template <class> class Mapper>
  static std::shared_ptr<UserDefault> with(std::string name, std::shared_ptr<UserDefaults> store) {
    return std::make_shared<UserDefault>(std::move(name), std::make_shared<Mapper<T>>(),
                                         std::move(store));
  }

  /// As `DefaultStore::defaultValue`.
  std::shared_ptr<UserDefault> defaultValue(
      typename DefaultStore<T>::DefaultValueProvider provider) {
    return std::static_pointer_cast<UserDefault>(
        DefaultStore<T>::defaultValue(std::move(provider)));
  }
};

}  // namespace tandrell
