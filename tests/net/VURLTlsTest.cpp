// HTTPS on loopback, with a certificate authority and a server certificate made by the test.
#include <gtest/gtest.h>

#include <Poco/Net/Context.h>
#include <Poco/Net/SecureServerSocket.h>
#include <curl/curl.h>

#include <cstdlib>
#include <string>

#include <vantu/VURL.h>

#include "support/HttpTestServer.h"
#include "support/TempDir.h"

namespace {

// A test CA and a server certificate for 127.0.0.1 that it signed, made with openssl(1).
void MakeCertificates(const vantu::test::TempDir& dir) {
  const std::string key = " -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 1 ";
  const std::string ca = "openssl req -x509" + key + "-subj /CN=ca -keyout " + (dir / "ca.key") +
                         " -out " + (dir / "ca.pem");
  const std::string server =
      "openssl req -x509" + key + "-subj /CN=127.0.0.1 -addext subjectAltName=IP:127.0.0.1 " +
      "-addext basicConstraints=CA:FALSE -CA " + (dir / "ca.pem") + " -CAkey " + (dir / "ca.key") +
      " -keyout " + (dir / "server.key") + " -out " + (dir / "server.pem");
  ASSERT_EQ(std::system((ca + " 2>/dev/null && " + server + " 2>/dev/null").c_str()), 0);
}

TEST(VURLTlsTest, PeersAreVerifiedOnlyWhenAskedAgainstTheGivenBundle) {
  vantu::test::TempDir dir;
  ASSERT_NO_FATAL_FAILURE(MakeCertificates(dir));
  Poco::Net::Context::Ptr context =
      new Poco::Net::Context(Poco::Net::Context::TLS_SERVER_USE, dir / "server.key",
                             dir / "server.pem", "", Poco::Net::Context::VERIFY_NONE);
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
  url.SetCABundle(VPath(dir / "ca.pem"));
  ASSERT_EQ(get(), 0);
  EXPECT_EQ(std::string(url.GetData(), url.GetDataSize()), "secret");
  EXPECT_EQ(url.Perform(address, nullptr, "body", 4, 30, nullptr, nullptr, nullptr, nullptr, 0), 0);
}

}  // namespace
