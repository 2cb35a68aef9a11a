#include "tests/support/loopback_server.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace test_support {
namespace {

constexpr long kPollMicroseconds = 20000;  // how soon a thread sees that the server ends

/// A client that waits for longer fails its test rather than hang it. By a clock that no test moves or stops.
using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kLongestStall{20};

void Require(bool good, const char* what) {
    if (good) return;
    std::fprintf(stderr, "loopback server: %s failed, error %d\n", what, WSAGetLastError());
    std::abort();
}

/// Winsock, started once and kept until the process ends.
void StartWinsock() {
    static const int result = [] {
        WSADATA data{};
        return WSAStartup(MAKEWORD(2, 2), &data);
    }();
    Require(result == 0, "WSAStartup");
}

sockaddr_in Loopback(unsigned short port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

/// A socket at a port of its own, which its caller asks for.
SOCKET BindToAnyPort(unsigned short& port) {
    StartWinsock();
    const SOCKET bound = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    Require(bound != INVALID_SOCKET, "socket");
    sockaddr_in address = Loopback(0);
    int length = sizeof(address);
    Require(bind(bound, reinterpret_cast<const sockaddr*>(&address), length) == 0, "bind");
    Require(getsockname(bound, reinterpret_cast<sockaddr*>(&address), &length) == 0, "getsockname");
    port = ntohs(address.sin_port);
    return bound;
}

/// Waits a moment for something to read, or for the other side's close.
bool IsReadable(SOCKET socket) {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(socket, &readable);
    timeval wait{0, kPollMicroseconds};
    return select(0, &readable, nullptr, nullptr, &wait) > 0;
}

}  // namespace

std::string Reply::Bytes() const {
    std::string bytes = "HTTP/1.1 " + status + "\r\n";
    for (const std::string& header : headers)
        bytes += header + "\r\n";
    if (announceLength) bytes += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    return bytes + "Connection: close\r\n\r\n" + body;
}

bool LoopbackServer::Exchange::Send(std::string_view bytes) {
    while (!bytes.empty()) {
        if (server_.Ending()) return false;
        // A short wait at a time, so that a client that does not read cannot hold the server's end.
        fd_set writable;
        FD_ZERO(&writable);
        FD_SET(socket_, &writable);
        timeval wait{0, kPollMicroseconds};
        if (select(0, nullptr, &writable, nullptr, &wait) == 0) continue;
        const int sent = send(socket_, bytes.data(), static_cast<int>(std::min<std::size_t>(bytes.size(), 65536)), 0);
        if (sent < 0 && WSAGetLastError() == WSAEWOULDBLOCK) continue;
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

void LoopbackServer::Exchange::Reset() {
    const linger hard{1, 0};
    setsockopt(socket_, SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&hard), sizeof(hard));
}

bool LoopbackServer::Exchange::AwaitClientClose() {
    char byte = 0;
    const Clock::time_point end = Clock::now() + kLongestStall;
    while (!server_.Ending() && Clock::now() < end) {
        if (IsReadable(socket_) && recv(socket_, &byte, 1, 0) <= 0) return true;
    }
    return false;
}

bool LoopbackServer::Exchange::Await(HANDLE event) {
    const HANDLE events[] = {event, server_.ending_.Get()};
    return WaitForMultipleObjects(2, events, FALSE, INFINITE) == WAIT_OBJECT_0;
}

bool LoopbackServer::Exchange::AwaitUntil(const std::function<bool()>& condition) {
    while (!condition()) {
        if (server_.Ending()) return false;
        Pause(1);
    }
    return true;
}

void LoopbackServer::Exchange::Pause(DWORD milliseconds) {
    WaitForSingleObject(server_.ending_.Get(), milliseconds);
}

bool LoopbackServer::Exchange::AwaitNextRequest() {
    if (!server_.ReadHead(socket_, request_)) return false;
    server_.Record(request_);
    return true;
}

LoopbackServer::LoopbackServer(Script script)
    : script_(std::move(script)), ending_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
    listener_ = BindToAnyPort(port_);
    Require(listen(listener_, SOMAXCONN) == 0, "listen");
    acceptor_ = std::thread([this] { Accept(); });
}

LoopbackServer::LoopbackServer(Reply reply)
    : LoopbackServer([bytes = reply.Bytes()](Exchange& exchange) { exchange.Send(bytes); }) {}

LoopbackServer::~LoopbackServer() {
    SetEvent(ending_.Get());
    acceptor_.join();
    for (std::thread& worker : workers_)
        worker.join();
    closesocket(listener_);
}

std::wstring LoopbackServer::Url(std::wstring_view path) const {
    return L"http://127.0.0.1:" + std::to_wstring(port_) + std::wstring(path);
}

std::vector<std::string> LoopbackServer::Requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
}

void LoopbackServer::Record(const std::string& request) const {
    const std::lock_guard lock(mutex_);
    requests_.push_back(request);
}

void LoopbackServer::Accept() {
    while (!Ending()) {
        if (!IsReadable(listener_)) continue;
        const SOCKET socket = accept(listener_, nullptr, nullptr);
        if (socket == INVALID_SOCKET) continue;
        // Without blocking, so that no thread is out of reach when the server ends.
        u_long yes = 1;
        Require(ioctlsocket(socket, static_cast<long>(FIONBIO), &yes) == 0, "ioctlsocket");
        workers_.emplace_back([this, socket] { Serve(socket); });
    }
}

void LoopbackServer::Serve(SOCKET socket) {
    std::string head;
    if (ReadHead(socket, head)) {
        Record(head);
        Exchange exchange(*this, socket, std::move(head));
        script_(exchange);
    }
    closesocket(socket);
}

/// A GET has no body, so nothing follows its head before the answer.
bool LoopbackServer::ReadHead(SOCKET socket, std::string& head) const {
    head.clear();
    char block[4096];
    const Clock::time_point end = Clock::now() + kLongestStall;
    while (!head.ends_with("\r\n\r\n")) {
        if (Ending() || Clock::now() >= end) return false;
        if (!IsReadable(socket)) continue;
        const int received = recv(socket, block, sizeof(block), 0);
        if (received <= 0) return false;
        head.append(block, static_cast<std::size_t>(received));
    }
    return true;
}

ClosedPort::ClosedPort() : socket_(BindToAnyPort(port_)) {}

ClosedPort::~ClosedPort() {
    closesocket(socket_);
}

}  // namespace test_support
