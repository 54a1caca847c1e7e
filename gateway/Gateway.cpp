#include "gateway/Gateway.h"

#include "gateway/figures/Counters.h"
#include "gateway/figures/NoticeQueue.h"
#include "gateway/http/Resources.h"
#include "gateway/robot/CallRunner.h"
#include "gateway/robot/ClientCalls.h"
#include "gateway/robot/StatusWatch.h"
#include "gateway/server/Connections.h"
#include "gateway/stream/Hub.h"
#include "gk/GKClock.h"
#include "gk/GKObserver.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/make_shared.hpp>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <future>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace gk::gateway {

namespace {

namespace asio = boost::asio;
using boost::system::error_code;

constexpr std::chrono::milliseconds kRefreshPeriod{100};
/// A tick that comes so near to a refresh takes it along: each client gets one write for both.
constexpr std::chrono::milliseconds kRefreshSlack{10};
/// How long clients have to take their farewell.
constexpr std::chrono::milliseconds kFarewell{100};
/// Before the next try where no connection could be accepted, for want of descriptors.
constexpr std::chrono::milliseconds kAcceptPause{100};

/// Notices that are passed on at a time: in between, connections have their turn, and the end.
constexpr std::size_t kSlice = 256;

/// How much this thread gives way to others: a loop of a module goes first.
constexpr int kNiceness = 5;

/// Wakes a thread that waits for its descriptor. `ring` is one write of eight bytes, from any
/// thread.
class Bell {
public:
  Bell() : fDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (fDescriptor < 0) {
      throw AccessError("no descriptor is left");
    }
  }
  ~Bell() { ::close(fDescriptor); }
  Bell(const Bell&) = delete;
  Bell& operator=(const Bell&) = delete;

  int descriptor() const noexcept { return fDescriptor; }
  void ring() const noexcept {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(fDescriptor, &one, sizeof one);
  }
  void silence() const noexcept {
    std::uint64_t rings = 0;
    [[maybe_unused]] const ssize_t taken = read(fDescriptor, &rings, sizeof rings);
  }

private:
  int fDescriptor;
};

HostFigures figuresOf(const GatewayOptions& options, StatusSource status) {
  const GK::GKWallTime wall = GK::GKClock::instance().wallTime();
  constexpr double kMicrosPerSecond = 1e6;
  // Whatever the clock is: no two processes begin at the same microsecond.
  const auto now = std::chrono::duration_cast<std::chrono::microseconds>(
      std::chrono::system_clock::now().time_since_epoch());
  return {options.version,
          static_cast<double>(wall.seconds) +
              static_cast<double>(wall.microseconds) / kMicrosPerSecond,
          options.limits.answer,
          options.recording,
          std::to_string(now.count()),
          options.playback,
          std::move(status),
          options.source};
}

} // namespace

/// The parts put together, and the thread that runs them.
class Gateway::Server {
public:
  explicit Server(GatewayOptions options)
      : fOptions(std::move(options)), fAccess(fOptions.access), fRunner(fOptions.limits.calls),
        fNotices(boost::make_shared<NoticeQueue>([this] { fBell.ring(); })), fStatus(fRunner),
        fVerdict(fCounters, fOptions.recording, [this] { return fStatus.rows(); }),
        fPast(fOptions.past), fFigures(figuresOf(fOptions, [this] { return fStatus.rows(); })),
        fResources(fAccess, fRunner, fCounters, fFigures, fVerdict, fPast),
        fRpc(fRunner, fCounters, fOptions.limits.answer),
        fHub(
            fRunner, fCounters, fOptions.version, fFigures.session,
            [this](std::function<void()> work) { asio::post(fContext, std::move(work)); }, fVerdict,
            fPast, fOptions.playback.get()),
        fParts{fHub, fResources, fCounters, fOptions, {}, 0}, fAcceptor(fContext),
        fWatch(fContext, dup(fBell.descriptor())), fRefresh(fContext), fPause(fContext) {
    xListen();
    xAccept();
    xWaitForBell();
    xAwaitRefresh();
    GK::GKObserverList::instance().add(fNotices);
    fThread = std::thread([this] { xRun(); });
  }

  // Ends the program when even that cannot be had.
  ~Server() { close(); } // NOLINT(bugprone-exception-escape)

  const std::string& host() const noexcept { return fOptions.access.address.host; }
  std::uint16_t port() const noexcept { return fPort; }

  void open(boost::shared_ptr<GK::GKBroker> broker, LoopSource loops, CarryOut carryOut,
            Outside outside) {
    carryOut = xKept(std::move(carryOut));
    auto robot = std::make_shared<Robot>(std::move(broker), std::move(loops), carryOut);
    if (fOptions.playback != nullptr) {
      robot->refuse(Playback::kRefusal);
    }
    fCalls = std::make_shared<ClientCalls>(fRpc, robot);
    xDo([this, robot = std::move(robot), carryOut = std::move(carryOut),
         outside = std::move(outside)]() mutable {
      fRunner.setCarryOut(std::move(carryOut));
      fRunner.setOutside(std::move(outside));
      fStatus.open(robot);
      fHub.open(std::move(robot));
    });
    GK::GKClientCalls::install(fCalls);
    if (fOptions.playback != nullptr) {
      fOptions.playback->setListener([this](Playback::Change change) { xOnPlayback(change); });
    }
  }

  void close() {
    if (!fThread.joinable()) {
      return;
    }
    if (fOptions.playback != nullptr) {
      fOptions.playback->setListener(nullptr);
    }
    GK::GKObserverList::instance().remove(fNotices);
    fRunner.close();
    if (fCalls != nullptr) {
      GK::GKClientCalls::install(nullptr);
      fCalls->close();
    }
    xDo([this] {
      error_code ignored;
      fAcceptor.close(ignored);
      for (Connection* connection : std::set<Connection*>(fParts.connections)) {
        connection->goAway();
      }
      fPause.expires_after(kFarewell);
      fPause.async_wait([this](error_code) { fContext.stop(); });
    });
    fThread.join();
    // On this thread now. Whoever still waits for an answer has lost its connection.
    fStatus.open(nullptr);
    fHub.close();
  }

private:
  using Steady = std::chrono::steady_clock;

  /// What clients do belongs to the past as well.
  CarryOut xKept(CarryOut carryOut) {
    return [this, carryOut = std::move(carryOut)](const formats::Action& action,
                                                  const std::function<void()>& work) {
      fPast.onAction(GK::GKClock::instance().elapsed(), action);
      if (carryOut) {
        carryOut(action, work);
      } else {
        work();
      }
    };
  }

  void xRun() {
    setpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)), kNiceness);
    fContext.run();
  }

  /// Runs work on the server's thread and waits for its end.
  void xDo(std::function<void()> work) {
    std::promise<void> done;
    asio::post(fContext, [&] {
      work();
      done.set_value();
    });
    done.get_future().wait();
  }

  /// Clients hear what came before the change, then of the change, and only then what comes after.
  void xOnPlayback(Playback::Change change) {
    xDo([this, change] {
      NoticeQueue::Batch batch;
      do {
        batch = fNotices->take(kSlice);
        fHub.process(batch);
      } while (batch.isMore);
      fHub.onPlayback(change);
    });
  }

  void xListen() {
    const Address& address = fOptions.access.address;
    try {
      const asio::ip::tcp::endpoint endpoint(asio::ip::make_address(address.host), address.port);
      fAcceptor.open(endpoint.protocol());
      fAcceptor.set_option(asio::socket_base::reuse_address(true));
      fAcceptor.bind(endpoint);
      fAcceptor.listen();
    } catch (const boost::system::system_error& error) {
      throw AccessError("--listen: " + address.host + ":" + std::to_string(address.port) + ": " +
                            error.code().message(),
                        error.code() == asio::error::address_in_use);
    }
    fPort = fAcceptor.local_endpoint().port();
    fAccess.setPort(fPort);
  }

  void xAccept() {
    fAcceptor.async_accept([this](error_code error, ByteStream::Socket socket) {
      if (!fAcceptor.is_open()) {
        return;
      }
      if (!error) {
        startConnection(fParts, std::move(socket));
        xAccept();
        return;
      }
      fPause.expires_after(kAcceptPause);
      fPause.async_wait([this](error_code cancelled) {
        if (!cancelled && fAcceptor.is_open()) {
          xAccept();
        }
      });
    });
  }

  void xWaitForBell() {
    fWatch.async_wait(asio::posix::stream_descriptor::wait_read, [this](error_code error) {
      if (!error) {
        fBell.silence();
        const NoticeQueue::Batch batch = fNotices->take(kSlice);
        const bool hasTicked = fHub.process(batch);
        if (batch.isMore) {
          fBell.ring();
        } else if (hasTicked && Steady::now() >= fRefreshDue - kRefreshSlack) {
          xRefresh();
        }
        xWaitForBell();
      }
    });
  }

  /// Refreshes where no tick has done so.
  void xAwaitRefresh() {
    fRefresh.expires_at(fRefreshDue + kRefreshSlack);
    fRefresh.async_wait([this](error_code error) {
      if (!error) {
        if (Steady::now() >= fRefreshDue + kRefreshSlack) {
          xRefresh();
        }
        xAwaitRefresh();
      }
    });
  }

  void xRefresh() {
    const Steady::time_point now = Steady::now();
    // Early ones and late ones make up for each other; what was missed is not made up for.
    fRefreshDue += kRefreshPeriod;
    if (fRefreshDue <= now) {
      fRefreshDue = now + kRefreshPeriod;
    }
    // Before there is a robot its clock is not there either.
    if (fStatus.isOpen()) {
      fStatus.refresh(GK::GKClock::instance().elapsed());
    }
    fHub.refresh();
    for (Connection* connection : std::set<Connection*>(fParts.connections)) {
      connection->checkStall();
    }
  }

  const GatewayOptions fOptions;
  Access fAccess;
  CallRunner fRunner;
  Counters fCounters;
  Bell fBell;
  boost::shared_ptr<NoticeQueue> fNotices;
  StatusWatch fStatus;
  VerdictWatch fVerdict;
  Past fPast;
  const HostFigures fFigures;
  Resources fResources;
  RpcService fRpc;
  std::shared_ptr<ClientCalls> fCalls;
  Hub fHub;
  ServerParts fParts;
  /// After what its handlers use, and before what lives in it: handlers that never ran, and the
  /// connections that they hold, go first.
  asio::io_context fContext{1};
  asio::basic_socket_acceptor<asio::ip::tcp, ByteStream::executor_type> fAcceptor;
  asio::posix::stream_descriptor fWatch;
  asio::steady_timer fRefresh;
  Steady::time_point fRefreshDue = Steady::now() + kRefreshPeriod;
  asio::steady_timer fPause;
  std::uint16_t fPort = 0;
  std::thread fThread;
};

Gateway::Gateway(GatewayOptions options) : fServer(std::make_unique<Server>(std::move(options))) {}

Gateway::~Gateway() = default;

std::uint16_t Gateway::port() const noexcept {
  return fServer->port();
}

std::string Gateway::url() const {
  const std::string& host = fServer->host();
  const bool isSix = host.find(':') != std::string::npos;
  return "http://" + (isSix ? "[" + host + "]" : host) + ":" + std::to_string(port()) + "/";
}

void Gateway::open(boost::shared_ptr<GK::GKBroker> broker, LoopSource loops, CarryOut carryOut,
                   Outside outside) {
  fServer->open(std::move(broker), std::move(loops), std::move(carryOut), std::move(outside));
}

void Gateway::close() {
  fServer->close();
}

} // namespace gk::gateway
