// TLS with OpenSSL 3. The library never sees the socket: it reads and writes memory, and TConnection moves
// the bytes, with its time limits.

#include "demo/tls.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <stdexcept>

namespace skyreel::demo {

namespace {

constexpr long kDay = 86400;
constexpr long kDaysValid = 30;
constexpr std::size_t kPiece = 65536;

template <auto Free>
struct TFree {
  template <typename T>
  void operator()(T* object) const {
    Free(object);
  }
};
using TKey = std::unique_ptr<EVP_PKEY, TFree<EVP_PKEY_free>>;
using TCertificate = std::unique_ptr<X509, TFree<X509_free>>;
using TContext = std::unique_ptr<SSL_CTX, TFree<SSL_CTX_free>>;
using TSsl = std::unique_ptr<SSL, TFree<SSL_free>>;
using TBio = std::unique_ptr<BIO, TFree<BIO_free_all>>;

void Require(bool succeeded) {
  if (succeeded) return;
  const unsigned long error = ERR_get_error();
  const char* const reason = ERR_reason_error_string(error);
  throw std::runtime_error(std::string("cannot make a certificate: ") +
                           (reason ? reason : "no reason given"));
}

TKey MakeKey() {
  TKey key(EVP_EC_gen("P-256"));
  Require(key != nullptr);
  return key;
}

/// Signed by `issuer`; by itself when that is null.
TCertificate MakeCertificate(const std::string& name, EVP_PKEY* key, X509* issuer, EVP_PKEY* issuer_key,
                             const std::vector<std::pair<int, std::string>>& extensions) {
  TCertificate certificate(X509_new());
  X509* const c = certificate.get();
  if (issuer == nullptr) issuer = c;
  X509_NAME* const subject = X509_get_subject_name(c);
  Require(X509_set_version(c, X509_VERSION_3) &&
          ASN1_INTEGER_set(X509_get_serialNumber(c), issuer == c ? 1 : 2) &&
          X509_gmtime_adj(X509_getm_notBefore(c), -kDay) &&
          X509_gmtime_adj(X509_getm_notAfter(c), kDaysValid * kDay) && X509_set_pubkey(c, key) &&
          X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC,
                                     reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0) &&
          X509_set_issuer_name(c, X509_get_subject_name(issuer)));
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, c, nullptr, nullptr, 0);
  for (const auto& [kind, value] : extensions) {
    const std::unique_ptr<X509_EXTENSION, TFree<X509_EXTENSION_free>> extension(
        X509V3_EXT_conf_nid(nullptr, &context, kind, value.c_str()));
    Require(extension != nullptr && X509_add_ext(c, extension.get(), -1));
  }
  Require(X509_sign(c, issuer_key, EVP_sha256()) > 0);
  return certificate;
}

std::string ToPem(X509* certificate) {
  const TBio memory(BIO_new(BIO_s_mem()));
  Require(memory != nullptr && PEM_write_bio_X509(memory.get(), certificate));
  char* text = nullptr;
  const long size = BIO_get_mem_data(memory.get(), &text);
  return {text, static_cast<std::size_t>(size)};
}

}  // namespace

struct TTlsIdentity::TParts {
  TContext Context;
};

TTlsIdentity::TTlsIdentity(const std::vector<std::string>& hosts) : parts_(std::make_unique<TParts>()) {
  const TKey authority_key = MakeKey(), key = MakeKey();
  const TCertificate authority =
      MakeCertificate("Skyreel demo archive authority", authority_key.get(), nullptr, authority_key.get(),
                      {{NID_basic_constraints, "critical,CA:TRUE"},
                       {NID_key_usage, "critical,keyCertSign"},
                       {NID_subject_key_identifier, "hash"}});
  std::string names;
  for (const std::string& host : hosts) names += (names.empty() ? "DNS:" : ",DNS:") + host;
  const TCertificate certificate =
      MakeCertificate("Skyreel demo archive", key.get(), authority.get(), authority_key.get(),
                      {{NID_subject_alt_name, names},
                       {NID_ext_key_usage, "serverAuth"},
                       {NID_authority_key_identifier, "keyid:always"}});
  parts_->Context.reset(SSL_CTX_new(TLS_server_method()));
  SSL_CTX* const context = parts_->Context.get();
  Require(context != nullptr && SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION) &&
          SSL_CTX_use_certificate(context, certificate.get()) && SSL_CTX_use_PrivateKey(context, key.get()));
  authority_ = ToPem(authority.get());
}

TTlsIdentity::~TTlsIdentity() = default;

struct TTlsConnection::TParts {
  TSsl Ssl;
  BIO* In = nullptr;  ///< both are the library's
  BIO* Out = nullptr;
};

TTlsConnection::TTlsConnection(const TTlsIdentity& identity, const TConnection& client)
    : TConnection(::dup(client.Socket())), parts_(std::make_unique<TParts>()) {
  parts_->Ssl.reset(SSL_new(identity.parts_->Context.get()));
  parts_->In = BIO_new(BIO_s_mem());
  parts_->Out = BIO_new(BIO_s_mem());
  Require(parts_->Ssl != nullptr && parts_->In != nullptr && parts_->Out != nullptr);
  SSL_set_bio(parts_->Ssl.get(), parts_->In, parts_->Out);
  SSL_set_accept_state(parts_->Ssl.get());
}

TTlsConnection::~TTlsConnection() = default;

/// Repeats a step of the library until it has succeeded, and moves the bytes that it needs. Returns its
/// result; 0 when the connection is over.
template <typename TStep>
int TTlsConnection::Run(const TStep& step) {
  for (;;) {
    ERR_clear_error();
    const int result = step(parts_->Ssl.get());
    const int error = SSL_get_error(parts_->Ssl.get(), result);
    char* data = nullptr;
    const long size = BIO_get_mem_data(parts_->Out, &data);
    const bool sent = size <= 0 || TConnection::Write({data, static_cast<std::size_t>(size)});
    BIO_reset(parts_->Out);
    if (!sent) return 0;
    if (result > 0) return result;
    if (error != SSL_ERROR_WANT_READ) return 0;
    const std::string more = TConnection::Receive();
    if (more.empty()) return 0;
    BIO_write(parts_->In, more.data(), static_cast<int>(more.size()));
  }
}

std::string TTlsConnection::Receive() {
  char data[kPiece];
  const int size = Run([&](SSL* ssl) { return SSL_read(ssl, data, sizeof data); });
  return {data, static_cast<std::size_t>(size)};
}

bool TTlsConnection::Write(std::string_view data) {
  while (!data.empty()) {
    const std::string_view piece = data.substr(0, kPiece);
    if (Run([&](SSL* ssl) { return SSL_write(ssl, piece.data(), static_cast<int>(piece.size())); }) == 0)
      return false;
    data.remove_prefix(piece.size());
  }
  return true;
}

void TTlsConnection::Finish(std::chrono::milliseconds limit) {
  Run([](SSL* ssl) { return SSL_shutdown(ssl) < 0 ? -1 : 1; });
  TConnection::Finish(limit);
}

}  // namespace skyreel::demo
