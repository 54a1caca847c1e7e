#include "extensions/fleet/Bridge.h"
#include "fleetbridge/Broker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace gk::fleet {

namespace {

using test::Broker;
using testing::HasSubstr;

/// Certificates for one test run, by the openssl program.
class Certificates {
public:
  Certificates() {
    authority("ca");
    authority("other");
    sign("broker", "subjectAltName=DNS:localhost,IP:127.0.0.1", "-days 1");
    sign("elsewhere", "subjectAltName=DNS:elsewhere.example", "-days 1");
    // Its time has passed with the second that it was made in.
    sign("expired", "subjectAltName=DNS:localhost,IP:127.0.0.1", "-days 0");
    sign("r1", "subjectAltName=DNS:r1", "-days 1");
  }

  std::string file(const std::string& name) const { return fFolder.file(name); }

  /// What went wrong when they were made; empty when nothing did.
  const std::string& problem() const { return fProblem; }

  /// A broker with this certificate, which wants one of its clients.
  std::string broker(const std::string& name) const {
    return "cafile " + file("ca.crt") + "\ncertfile " + file(name + ".crt") + "\nkeyfile " +
           file(name + ".key") + "\nrequire_certificate true\nuse_identity_as_username true\n";
  }

private:
  static constexpr const char* kNewKey = "-newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes ";

  void run(const std::string& arguments) {
    const test::ProgramResult result =
        test::runProgram({"/bin/sh", "-c", "openssl " + arguments}, fFolder.path());
    fProblem += result.code != 0 ? result.err : "";
  }
  void authority(const std::string& name) {
    run("req -x509 " + std::string(kNewKey) + "-keyout " + name + ".key -out " + name +
        ".crt -days 1 -subj /CN=" + name);
  }
  void sign(const std::string& name, const std::string& extension, const std::string& days) {
    test::writeFile(file(name + ".ext"), extension + "\n");
    run("req " + std::string(kNewKey) + "-keyout " + name + ".key -out " + name +
        ".csr -subj /CN=" + name);
    run("x509 -req -in " + name + ".csr -CA ca.crt -CAkey ca.key -CAcreateserial -out " + name +
        ".crt " + days + " -extfile " + name + ".ext");
  }

  test::TemporaryFolder fFolder;
  std::string fProblem;
};

struct BridgeTlsTest : testing::Test {
  static void SetUpTestSuite() { sCertificates = std::make_unique<Certificates>(); }
  static void TearDownTestSuite() { sCertificates.reset(); }
  /// Here: what fails in the suite's own beginning counts as skipped.
  void SetUp() override { ASSERT_EQ(sCertificates->problem(), ""); }

  static messages::MqttTls files(const std::string& authority = "ca") {
    return {sCertificates->file(authority + ".crt"), sCertificates->file("r1.crt"),
            sCertificates->file("r1.key")};
  }

  std::unique_ptr<Bridge> bridge(std::uint16_t port, const messages::MqttTls& tls,
                                 const std::string& host = "localhost") const {
    FleetSettings settings;
    settings.broker = {host, port, true};
    settings.root = "gk";
    settings.site = "default";
    settings.robot = "r1";
    settings.outbox.file = folder.file("outbox.db");
    settings.tls = tls;
    auto bridge =
        std::make_unique<Bridge>(settings, BridgeSources{std::make_shared<GK::GKMemoryStore>(),
                                                         [] { return messages::FleetFactsheet(); },
                                                         [] { return std::size_t{0}; }});
    bridge->start();
    return bridge;
  }

  /// Why there is no connection, once that is known; "connected" when there is one.
  static std::string outcome(const Bridge& bridge) {
    const auto end = std::chrono::steady_clock::now() + test::kPatience;
    while (std::chrono::steady_clock::now() < end) {
      const Bridge::Status status = bridge.status();
      if (status.isConnected) {
        return "connected";
      }
      if (!status.connectionTrouble.empty()) {
        return status.connectionTrouble;
      }
      std::this_thread::yield();
    }
    return "nothing";
  }

  static inline std::unique_ptr<Certificates> sCertificates;
  test::TemporaryFolder folder;
};

TEST_F(BridgeTlsTest, CertificatesThatFitConnect) {
  const Broker broker(sCertificates->broker("broker"));
  EXPECT_EQ(outcome(*bridge(broker.port(), files())), "connected");
  EXPECT_EQ(outcome(*bridge(broker.port(), files(), "127.0.0.1")), "connected");
}

TEST_F(BridgeTlsTest, BrokerOfAnotherAuthorityIsRefused) {
  const Broker broker(sCertificates->broker("broker"));
  EXPECT_EQ(outcome(*bridge(broker.port(), files("other"))),
            "the broker's certificate is not signed by the CA that is trusted here");
}

TEST_F(BridgeTlsTest, ExpiredCertificateIsRefused) {
  const Broker broker(sCertificates->broker("expired"));
  EXPECT_EQ(outcome(*bridge(broker.port(), files())), "the broker's certificate has expired");
}

TEST_F(BridgeTlsTest, CertificateForAnotherHostIsRefused) {
  const Broker broker(sCertificates->broker("elsewhere"));
  EXPECT_EQ(outcome(*bridge(broker.port(), files())),
            "the broker's certificate is not for localhost");
  EXPECT_EQ(outcome(*bridge(broker.port(), files(), "127.0.0.1")),
            "the broker's certificate is not for 127.0.0.1");
}

TEST_F(BridgeTlsTest, BrokerThatWantsACertificateSaysSo) {
  const Broker broker(sCertificates->broker("broker"));
  messages::MqttTls tls = files();
  tls.certificateFile.clear();
  tls.keyFile.clear();
  EXPECT_THAT(outcome(*bridge(broker.port(), tls)), HasSubstr("TLS handshake"));
}

TEST_F(BridgeTlsTest, PortWithoutTlsIsToldApart) {
  const Broker broker;
  EXPECT_THAT(outcome(*bridge(broker.port(), files())),
              HasSubstr("the TLS handshake failed: is this a TLS port"));
}

TEST_F(BridgeTlsTest, FilesThatAreOfNoUseAreNamedBeforeAnythingStarts) {
  const auto complaint = [this](const messages::MqttTls& tls) -> std::string {
    try {
      bridge(1, tls);
    } catch (const messages::MqttError& error) {
      return error.what();
    }
    return "nothing";
  };
  messages::MqttTls tls = files();
  tls.caFile = folder.file("nothing.crt");
  EXPECT_THAT(complaint(tls), testing::StartsWith(tls.caFile + ": "));
  tls = files();
  tls.keyFile = sCertificates->file("ca.key");
  EXPECT_THAT(complaint(tls), testing::StartsWith(tls.keyFile + ": "));
  tls = files();
  tls.keyFile.clear();
  EXPECT_THAT(complaint(tls), HasSubstr("belong together"));
}

} // namespace

} // namespace gk::fleet
