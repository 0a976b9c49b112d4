// SPDX-License-Identifier: MIT
//
// Sockets and threads: one thread takes connections, as many as may be open hold one each, and two
// more tell those beyond the limits that there is no room.
#include <arpa/inet.h>
#include <malloc.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <deque>
#include <filesystem>
#include <optional>
#include <thread>

#include "files/failure.h"
#include "files/output_file.h"
#include "serve/conversation.h"

namespace kova_cli {
namespace {

constexpr size_t kDoormen = 2;
constexpr size_t kMostAtTheDoor = 32; // beyond them connections are closed without a word
constexpr size_t kBodiesAtATime = 4;  // of the longest

[[noreturn]] void FailOf(const std::string& what) {
    throw Failure(what + ": " + std::strerror(errno));
}

class Descriptor {
  public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() {
        if (number_ >= 0) {
            close(number_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int number() const { return number_; }

  private:
    int number_;
};

// SIGTERM and SIGINT as something to wait for; threads that are started later inherit that they are
// blocked.
int SignalDescriptor() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    const int descriptor = signalfd(-1, &signals, SFD_CLOEXEC);
    if (descriptor < 0) {
        FailOf("signals cannot be waited for");
    }
    return descriptor;
}

int Listen(const std::string& address, uint16_t port) {
    addrinfo hints = {};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) {
        throw Failure("'" + address + "' is no address; give one such as 127.0.0.1 or ::");
    }
    const int listening = socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const int on = 1;
    const bool isBound =
        listening >= 0 && setsockopt(listening, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
        bind(listening, found->ai_addr, found->ai_addrlen) == 0 && listen(listening, 128) == 0;
    const int error = errno;
    freeaddrinfo(found);
    if (!isBound) {
        if (listening >= 0) {
            close(listening);
        }
        throw Failure("cannot listen on " + address + " port " + std::to_string(port) + ": " +
                      std::strerror(error) + "; choose another (--address, --port)");
    }
    return listening;
}

std::string Name(const sockaddr_storage& address) {
    char text[INET6_ADDRSTRLEN] = "";
    if (address.ss_family == AF_INET) {
        const auto& four = reinterpret_cast<const sockaddr_in&>(address);
        inet_ntop(AF_INET, &four.sin_addr, text, sizeof text);
        return text;
    }
    sockaddr_in6 six = reinterpret_cast<const sockaddr_in6&>(address);
    if (IN6_IS_ADDR_V4MAPPED(&six.sin6_addr)) {
        inet_ntop(AF_INET, six.sin6_addr.s6_addr + 12, text, sizeof text);
        return text;
    }
    // Who has one address of a network of 64 bits has them all.
    std::memset(six.sin6_addr.s6_addr + 8, 0, 8);
    inet_ntop(AF_INET6, &six.sin6_addr, text, sizeof text);
    return text;
}

uint16_t PortOf(int listening) {
    sockaddr_storage address = {};
    socklen_t size = sizeof address;
    getsockname(listening, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.ss_family == AF_INET
                     ? reinterpret_cast<const sockaddr_in&>(address).sin_port
                     : reinterpret_cast<const sockaddr_in6&>(address).sin6_port);
}

void AllowDescriptors(size_t count) {
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < count) {
        limit.rlim_cur = std::min<rlim_t>(count, limit.rlim_max);
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

// A picture's memory goes back to the system with the picture, and few pools keep what is small.
void KeepMemorySmall() {
    mallopt(M_ARENA_MAX, 2);
    mallopt(M_MMAP_THRESHOLD, 128 << 10);
    mallopt(M_TRIM_THRESHOLD, 128 << 10);
}

// A connection on its way to a thread.
struct Arrived {
    int socket;
    std::string address;
    ConnectionCount::Answer answer;
};

// Connections that wait for a thread.
class Queue {
  public:
    void Put(Arrived arrived) {
        {
            const std::lock_guard lock(mutex_);
            arrived_.push_back(std::move(arrived));
        }
        isChanged_.notify_one();
    }
    // Those that are there are still given out.
    void End() {
        {
            const std::lock_guard lock(mutex_);
            isEnded_ = true;
        }
        isChanged_.notify_all();
    }
    // False when no more will come.
    bool Next(Arrived& arrived) {
        std::unique_lock lock(mutex_);
        isChanged_.wait(lock, [this] { return isEnded_ || !arrived_.empty(); });
        if (arrived_.empty()) {
            return false;
        }
        arrived = std::move(arrived_.front());
        arrived_.pop_front();
        return true;
    }
    size_t Length() {
        const std::lock_guard lock(mutex_);
        return arrived_.size();
    }

  private:
    std::mutex mutex_;
    std::condition_variable isChanged_;
    std::deque<Arrived> arrived_;
    bool isEnded_ = false;
};

void HoldConversations(Service& service, Queue& queue, int stopping) {
    Conversation conversation(service);
    Arrived arrived;
    while (queue.Next(arrived)) {
        {
            Connection connection(arrived.socket, arrived.address, stopping,
                                  service.settings.timeout);
            conversation.Hold(connection, arrived.address);
        }
        service.connections.Leave(arrived.address);
    }
}

void TurnAway(Service& service, Queue& queue, int stopping) {
    Arrived arrived;
    while (queue.Next(arrived)) {
        const bool isFull = arrived.answer == ConnectionCount::Answer::kFull;
        const Refusal refusal = {isFull ? 503 : 429,
                                 isFull ? "the service has too many connections; try again soon"
                                        : "your address has too many connections; use fewer"};
        const std::string body = RefusalJson(refusal);
        Connection connection(arrived.socket, arrived.address, stopping, service.settings.timeout);
        connection.Expect(0);
        connection.write_format(
            "HTTP/1.1 %d %s\r\nConnection: close\r\nRetry-After: 1\r\n"
            "Content-Type: application/json\r\nContent-Length: %zu\r\n\r\n",
            refusal.status, isFull ? "Service Unavailable" : "Too Many Requests", body.size());
        connection.httplib::Stream::write(body);
        connection.Flush();
        connection.Part();
    }
}

// Takes what has come. A client that is gone again is none of our business, and neither is the lack
// of descriptors, which ends by itself.
void TakeConnections(Service& service, int listening, Queue& queue, Queue& door) {
    while (true) {
        sockaddr_storage from = {};
        socklen_t size = sizeof from;
        const int taken = accept4(listening, reinterpret_cast<sockaddr*>(&from), &size,
                                  SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (taken < 0) {
            if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            }
            return;
        }
        Arrived arrived{taken, Name(from), {}};
        arrived.answer = service.connections.Enter(arrived.address);
        if (arrived.answer == ConnectionCount::Answer::kEntered) {
            queue.Put(std::move(arrived));
            continue;
        }
        service.metrics.CountRefusedConnection();
        if (door.Length() < kMostAtTheDoor) {
            door.Put(std::move(arrived));
        } else {
            close(taken);
        }
    }
}

} // namespace

Service::Service(const ServeSettings& given, FaceEngine engineGiven)
    : settings(given),
      engine(std::move(engineGiven)),
      rate(given.rate, given.ratePerAddress),
      connections(given.connections, given.connectionsPerAddress),
      bodies(kBodiesAtATime * given.bodyBytes),
      pictures(given.waiting) {
    for (const std::string& path : given.galleries) {
        const std::string name = GalleryName(path);
        if (!galleries.try_emplace(name, path, engine.models, given.timeout).second) {
            throw Failure(path + ": another gallery is called " + name + ", too; rename one");
        }
    }
}

std::string GalleryName(const std::string& path) {
    return std::filesystem::path(path).stem().string();
}

void Serve(Service& service) {
    const ServeSettings& settings = service.settings;
    KeepMemorySmall();
    AllowDescriptors(settings.connections + kDoormen + kMostAtTheDoor + 64);
    const Descriptor signals(SignalDescriptor());
    const Descriptor stopping(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    Queue queue;
    Queue door;
    std::vector<std::thread> threads;
    const auto stop = [&] {
        static_cast<void>(eventfd_write(stopping.number(), 1));
        queue.End();
        door.End();
        for (std::thread& thread : threads) {
            thread.join();
        }
    };
    std::optional<Descriptor> listening(std::in_place, Listen(settings.address, settings.port));
    try {
        for (size_t i = 0; i < settings.connections; ++i) {
            threads.emplace_back([&] { HoldConversations(service, queue, stopping.number()); });
        }
        for (size_t i = 0; i < kDoormen; ++i) {
            threads.emplace_back([&] { TurnAway(service, door, stopping.number()); });
        }
        const bool isSix = settings.address.find(':') != std::string::npos;
        WriteStandardOutput("http://" + (isSix ? "[" + settings.address + "]" : settings.address) +
                            ":" + std::to_string(PortOf(listening->number())) + "\n");
        pollfd waits[2] = {{listening->number(), POLLIN, 0}, {signals.number(), POLLIN, 0}};
        while (waits[1].revents == 0) {
            if (poll(waits, 2, -1) > 0 && waits[0].revents != 0) {
                TakeConnections(service, listening->number(), queue, door);
            }
        }
        TakeConnections(service, listening->number(), queue, door);
    } catch (...) {
        stop();
        throw;
    }
    listening.reset();
    stop();
}

} // namespace kova_cli
