#pragma once

#include "settings/registry_store.h"

namespace skyreel {

/// One setting: a value that is read from the store when the object is made and written back when it is
/// destroyed. The store outlives it.
class TRegistryVariable {
 public:
  virtual ~TRegistryVariable() = default;
  TRegistryVariable(const TRegistryVariable&) = delete;
  TRegistryVariable& operator=(const TRegistryVariable&) = delete;

  /// Writes the value to the store.
  virtual void Save() = 0;

  /// When set, the destructor takes the value out of the store (after the save).
  bool Delete = false;
  const QString Name;   ///< value name
  TRegistryStore& Key;  ///< the settings key

 protected:
  TRegistryVariable(TRegistryStore& key, const QString& name) : Name(name), Key(key) {}
  /// What every descendant's destructor does.
  void Finish();
};

/// A text. Missing in the store, it is the default.
class TRegistryString : public TRegistryVariable {
 public:
  TRegistryString(TRegistryStore& key, const QString& name, const QString& default_value);
  ~TRegistryString() override { Finish(); }
  void Save() override { Key.WriteString(Name, Value); }

  QString Value;
};

/// A whole number of 32 bits. The default is for a key that does not exist yet (kept: in an existing key a
/// missing value is a read error); throws ERegistryError.
class TRegistryInteger : public TRegistryVariable {
 public:
  TRegistryInteger(TRegistryStore& key, const QString& name, std::int32_t default_value);
  ~TRegistryInteger() override { Finish(); }
  void Save() override { Key.WriteInteger(Name, Value); }

  std::int32_t Value;
};

/// True or false; missing in the store as TRegistryInteger.
class TRegistryBoolean : public TRegistryVariable {
 public:
  TRegistryBoolean(TRegistryStore& key, const QString& name, bool default_value);
  ~TRegistryBoolean() override { Finish(); }
  void Save() override { Key.WriteBoolean(Name, Value); }

  bool Value;
};

}  // namespace skyreel
