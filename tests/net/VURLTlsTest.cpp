// HTTPS on loopback, with a certificate authority and a server certificate made by the test.
#include <gtest/gtest.h>

#include <Poco/Net/Context.h>
#include <Poco/Net/SecureServerSocket.h>
#include <curl/curl.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <memory>
#include <string>

#include <vantu/VURL.h>

#include "support/HttpTestServer.h"
#include "support/TempDir.h"

namespace {

using KeyPtr = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using CertPtr = std::unique_ptr<X509, decltype(&X509_free)>;

// A certificate for `key` named `name`, signed by `issuer` (self-signed without one): a CA
// certificate, or a server certificate for the address 127.0.0.1.
CertPtr MakeCertificate(EVP_PKEY* key, const char* name, X509* issuer, EVP_PKEY* issuerKey) {
  CertPtr cert(X509_new(), X509_free);
  X509* x = cert.get();
  X509_set_version(x, 2);
  ASN1_INTEGER_set(X509_get_serialNumber(x), issuer == nullptr ? 1 : 2);
  X509_gmtime_adj(X509_getm_notBefore(x), -3600);
  X509_gmtime_adj(X509_getm_notAfter(x), 86400);
  X509_set_pubkey(x, key);
  X509_NAME_add_entry_by_txt(X509_get_subject_name(x), "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>(name), -1, -1, 0);
  X509_set_issuer_name(x, X509_get_subject_name(issuer != nullptr ? issuer : x));
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, issuer != nullptr ? issuer : x, x, nullptr, nullptr, 0);
  auto add = [&](int nid, const char* value) {
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
    X509_add_ext(x, extension, -1);
    X509_EXTENSION_free(extension);
  };
  if (issuer == nullptr) {
    add(NID_basic_constraints, "critical,CA:TRUE");
    add(NID_key_usage, "critical,keyCertSign,cRLSign");
    add(NID_subject_key_identifier, "hash");
  } else {
    add(NID_basic_constraints, "CA:FALSE");
    add(NID_subject_alt_name, "IP:127.0.0.1");
    add(NID_ext_key_usage, "serverAuth");
    add(NID_authority_key_identifier, "keyid");
  }
  X509_sign(x, issuerKey != nullptr ? issuerKey : key, EVP_sha256());
  return cert;
}

// PEM files of a test CA and of a server certificate it signed, in `dir`.
struct TestCertificates {
  explicit TestCertificates(const vantu::test::TempDir& dir)
      : ca(dir / "ca.pem"), serverCert(dir / "server.pem"), serverKey(dir / "server.key") {
    KeyPtr caKey(EVP_EC_gen("P-256"), EVP_PKEY_free);
    KeyPtr key(EVP_EC_gen("P-256"), EVP_PKEY_free);
    CertPtr caCert = MakeCertificate(caKey.get(), "libvantu test CA", nullptr, nullptr);
    CertPtr cert = MakeCertificate(key.get(), "127.0.0.1", caCert.get(), caKey.get());
    auto write = [](const std::string& path, auto writer) {
      std::FILE* file = std::fopen(path.c_str(), "w");
      writer(file);
      std::fclose(file);
    };
    write(ca, [&](std::FILE* f) { PEM_write_X509(f, caCert.get()); });
    write(serverCert, [&](std::FILE* f) { PEM_write_X509(f, cert.get()); });
    write(serverKey, [&](std::FILE* f) {
      PEM_write_PrivateKey(f, key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    });
  }
  std::string ca, serverCert, serverKey;
};

TEST(VURLTlsTest, PeersAreVerifiedOnlyWhenAskedAgainstTheGivenBundle) {
  vantu::test::TempDir dir;
  const TestCertificates certificates(dir);
  Poco::Net::Context::Ptr context =
      new Poco::Net::Context(Poco::Net::Context::TLS_SERVER_USE, certificates.serverKey,
                             certificates.serverCert, "", Poco::Net::Context::VERIFY_NONE);
  vantu::test::HttpTestServer server(
      [](Poco::Net::HTTPServerRequest&, Poco::Net::HTTPServerResponse& response) {
        response.sendBuffer("secret", 6);
      },
      Poco::Net::SecureServerSocket(Poco::Net::SocketAddress("127.0.0.1", 0), 64, context),
      "https");
  const std::string address = server.Url("/");
  VURL url;
  auto get = [&] { return url.Get(address, 30, nullptr, nullptr, nullptr, nullptr); };
  url.SetCABundle(VPath(dir / "no-such-bundle.pem"));  // not consulted without verification
  ASSERT_EQ(get(), 0);
  EXPECT_EQ(std::string(url.GetData(), url.GetDataSize()), "secret");
  url.SetVerifyPeer(true);
  EXPECT_EQ(get(), CURLE_SSL_CACERT_BADFILE);
  url.SetCABundle(VPath());  // libcurl's own store, which does not know the test CA
  EXPECT_EQ(get(), CURLE_PEER_FAILED_VERIFICATION);
  url.SetCABundle(VPath(certificates.ca));
  ASSERT_EQ(get(), 0);
  EXPECT_EQ(std::string(url.GetData(), url.GetDataSize()), "secret");
  EXPECT_EQ(url.Perform(address, nullptr, "body", 4, 30, nullptr, nullptr, nullptr, nullptr, 0), 0);
}

}  // namespace
