#pragma once

#include "settings/registry_store.h"

namespace skyreel {

/// One setting: reads its value from the store when it is created and writes it back when it is destroyed.
/// The store must outlive it.
class TRegistryVariable {
 public:
  virtual ~TRegistryVariable() = default;
  TRegistryVariable(const TRegistryVariable&) = delete;
  TRegistryVariable& operator=(const TRegistryVariable&) = delete;

  /// Writes the value to the store.
  virtual void Save() = 0;

  /// When set, the destructor removes the value from the store (after the save).
  bool Delete = false;
  const QString Name;   ///< value name
  TRegistryStore& Key;  ///< the settings key

 protected:
  TRegistryVariable(TRegistryStore& key, const QString& name) : Name(name), Key(key) {}
  /// Every descendant's destructor calls this.
  void Finish();
};

/// A text. When the store does not hold it, the default.
class TRegistryString : public TRegistryVariable {
 public:
  TRegistryString(TRegistryStore& key, const QString& name, const QString& default_value);
  ~TRegistryString() override { Finish(); }
  void Save() override { Key.WriteString(Name, Value); }

  QString Value;
};

/// A whole number of 32 bits. When the key does not exist, the default (kept: in an existing key a missing
/// value is a read error). Throws ERegistryError.
class TRegistryInteger : public TRegistryVariable {
 public:
  TRegistryInteger(TRegistryStore& key, const QString& name, std::int32_t default_value);
  ~TRegistryInteger() override { Finish(); }
  void Save() override { Key.WriteInteger(Name, Value); }

  std::int32_t Value;
};

/// True or false. A missing value is treated as in TRegistryInteger.
class TRegistryBoolean : public TRegistryVariable {
 public:
  TRegistryBoolean(TRegistryStore& key, const QString& name, bool default_value);
  ~TRegistryBoolean() override { Finish(); }
  void Save() override { Key.WriteBoolean(Name, Value); }

  bool Value;
};

}  // namespace skyreel
