#pragma once

#include <memory>
#include <string>
#include <vector>

#include "demo/tcp_server.h"

namespace skyreel::demo {

/// A certificate authority that exists for one run of the program, and a certificate that it gave to a server
/// of some host names. Several threads may use it.
class TTlsIdentity {
 public:
  /// Throws std::runtime_error when the library fails.
  explicit TTlsIdentity(const std::vector<std::string>& hosts);
  ~TTlsIdentity();
  TTlsIdentity(const TTlsIdentity&) = delete;
  TTlsIdentity& operator=(const TTlsIdentity&) = delete;

  /// The authority's certificate as PEM, for those who are to trust it.
  const std::string& Authority() const { return authority_; }

 private:
  friend class TTlsConnection;
  struct TParts;
  std::unique_ptr<TParts> parts_;
  std::string authority_;
};

/// The server's side of a TLS connection (1.2 or above). The handshake takes place when the first bytes are
/// read or written.
class TTlsConnection : public TConnection {
 public:
  /// Speaks over the socket of `client`, which stays its owner's.
  TTlsConnection(const TTlsIdentity& identity, const TConnection& client);
  ~TTlsConnection() override;

  std::string Receive() override;
  bool Write(std::string_view data) override;
  void Finish(std::chrono::milliseconds limit) override;

 private:
  template <typename TStep>
  int Run(const TStep& step);

  struct TParts;
  std::unique_ptr<TParts> parts_;
};

}  // namespace skyreel::demo
