#pragma once

#include <map>
#include <string>

namespace skyreel {

/// A server that a source asks. It is a setting of the user's.
struct TServerSetting {
  const char* Name;     ///< value name in the settings
  const char* Caption;  ///< what the user reads in the servers dialog
  /// The built-in root: "http://host[:port]", or "host[:port]" for FTP. One under ".example" is a
  /// placeholder: the source has no public server any more, and the user names one.
  const char* Default;
  bool Ftp = false;
};

/// The roots of the servers for one run.
class TServerRoots {
 public:
  /// The root that was set, or the built-in one.
  std::string Root(const TServerSetting& server) const {
    const auto set = roots_.find(server.Name);
    return set == roots_.end() ? server.Default : set->second;
  }
  void Set(const TServerSetting& server, std::string root) { roots_[server.Name] = std::move(root); }

 private:
  std::map<std::string, std::string> roots_;  ///< by the setting's name
};

}  // namespace skyreel
