#include "settings/registry_variable.h"

namespace skyreel {

void TRegistryVariable::Finish() {
  Save();
  if (Delete) Key.DeleteValue(Name);
}

TRegistryString::TRegistryString(TRegistryStore& key, const QString& name, const QString& default_value)
    : TRegistryVariable(key, name), Value(key.HasValue(name) ? key.ReadString(name) : default_value) {}

TRegistryInteger::TRegistryInteger(TRegistryStore& key, const QString& name, std::int32_t default_value)
    : TRegistryVariable(key, name), Value(key.KeyExists() ? key.ReadInteger(name) : default_value) {}

TRegistryBoolean::TRegistryBoolean(TRegistryStore& key, const QString& name, bool default_value)
    : TRegistryVariable(key, name), Value(key.KeyExists() ? key.ReadBoolean(name) : default_value) {}

}  // namespace skyreel
