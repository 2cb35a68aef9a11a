#pragma once

#include <winsock2.h>
// winsock2.h must come before windows.h
#include <windows.h>

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/unique_handle.h"

namespace test_support {

/// One response in bytes. The length is announced unless told otherwise; the connection ends behind it.
struct Reply {
    std::string status = "200 OK";
    std::vector<std::string> headers;  // each without its line end
    std::string body;
    bool announceLength = true;

    [[nodiscard]] std::string Bytes() const;
};

/// An http server on 127.0.0.1 that follows a script, for one test. Nothing in it is polite: the script sends raw
/// bytes.
///
/// One thread accepts; each connection has a thread that reads one request's head, runs the script and closes. The
/// script may run on several threads at once. Destruction wakes every wait, closes every connection and joins.
class LoopbackServer {
  public:
    /// One connection with the head of its request.
    class Exchange {
      public:
        Exchange(const LoopbackServer& server, SOCKET socket, std::string request)
            : server_(server), socket_(socket), request_(std::move(request)) {}

        [[nodiscard]] const std::string& Request() const { return request_; }
        /// False if the client is gone or the server is ending.
        bool Send(std::string_view bytes);
        bool Send(const Reply& reply) { return Send(reply.Bytes()); }
        /// Makes the close that follows a reset.
        void Reset();
        /// Waits until the client closes. False if the server ends first, or after 20 seconds.
        bool AwaitClientClose();
        /// Waits for an event. False if the server ends first.
        bool Await(HANDLE event);
        /// Polls until `condition` holds. False if the server ends first.
        bool AwaitUntil(const std::function<bool()>& condition);
        /// Lets time pass, for schedules that are random on purpose; cut short when the server ends.
        void Pause(DWORD milliseconds);
        /// Reads the head of another request on the same connection. False if none comes.
        bool AwaitNextRequest();

      private:
        const LoopbackServer& server_;
        SOCKET socket_;
        std::string request_;
    };

    using Script = std::function<void(Exchange&)>;

    explicit LoopbackServer(Script script);
    explicit LoopbackServer(Reply reply);
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;
    ~LoopbackServer();

    [[nodiscard]] std::wstring Url(std::wstring_view path = L"/payload") const;
    [[nodiscard]] unsigned short Port() const { return port_; }
    /// The heads of all requests so far, in order of arrival.
    [[nodiscard]] std::vector<std::string> Requests() const;

  private:
    friend class Exchange;

    void Accept();
    void Serve(SOCKET socket);
    void Record(const std::string& request) const;
    [[nodiscard]] bool ReadHead(SOCKET socket, std::string& head) const;
    [[nodiscard]] bool Ending() const { return WaitForSingleObject(ending_.Get(), 0) == WAIT_OBJECT_0; }

    Script script_;
    platform::KernelHandle ending_;
    SOCKET listener_ = INVALID_SOCKET;
    unsigned short port_ = 0;
    mutable std::mutex mutex_;
    mutable std::vector<std::string> requests_;  // guarded by mutex_
    std::vector<std::thread> workers_;           // touched by the accepting thread, then by the destructor
    std::thread acceptor_;
};

/// A port on 127.0.0.1 that refuses every connection. It is kept from everybody else for the life of the object: a port
/// that is merely free may get a listener of another program before the client asks.
class ClosedPort {
  public:
    ClosedPort();
    ClosedPort(const ClosedPort&) = delete;
    ClosedPort& operator=(const ClosedPort&) = delete;
    ~ClosedPort();

    [[nodiscard]] unsigned short Number() const { return port_; }

  private:
    unsigned short port_ = 0;
    SOCKET socket_;
};

/// A manual-reset event for tests that hand a turn from one thread to another.
class Signal {
  public:
    Signal() : event_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}
    void Set() { SetEvent(event_.Get()); }
    [[nodiscard]] HANDLE Get() const { return event_.Get(); }
    [[nodiscard]] bool IsSet() const { return WaitForSingleObject(event_.Get(), 0) == WAIT_OBJECT_0; }

  private:
    platform::KernelHandle event_;
};

}  // namespace test_support
