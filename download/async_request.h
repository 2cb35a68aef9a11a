#pragma once

#include <windows.h>

#include <winhttp.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "platform/unique_handle.h"

namespace launcher_download {

/// Makes one WinHTTP request handle in asynchronous mode look blocking, so that a wait can be ended by the user or by a
/// deadline. The only place where WinHTTP's callback runs ("WINHTTP_STATUS_CALLBACK callback function").
///
/// Threads: everything but the callback belongs to one thread, the owner's, which constructs. The callback runs on
/// WinHTTP's threads, where it touches the three atomics and the two events and nothing else. It also runs on the
/// owner's thread inside a WinHTTP call, no lock being held there; what then is done already costs no event, which
/// spares every second kernel call of a body that arrives fast.
///
///     owner                                           callback
///     reset done, set expected, clear error, bytes
///     WinHttp...()  ------------------------------->  awaited status:  bytes, then done
///     wait for done, 25 ms at a time                  request error:   error, then done
///       abort or deadline: stop(), wait for closed    handle closing:  closed, always the last call of all
///     read error, bytes
///
/// Why destruction is safe: WinHTTP reports "handle closing" exactly once, after everything else that it will ever
/// report for the handle. The destructor has the handle closed and waits for that report without limit; a limit would
/// only turn a hang into a write to freed memory. The wait ends because every WinHTTP step has a time-out, the wait for
/// headers included (see `HttpConversation`). A status that belongs to no operation in flight is dropped by comparison
/// with `expected`; the error report of a call that has also returned FALSE finds nobody waiting, since the owner makes
/// no further call after a failure.
class AsyncWinHttpRequest {
  public:
    /// Takes over the callbacks of `request`, which stays the caller's and must be closed by `stop` alone. `stop`
    /// closes it, any number of calls being the same as one. `abort` is asked before and during each wait and may be
    /// empty. `deadlineMs` is a `GetTickCount64` value, 0 for none.
    AsyncWinHttpRequest(HINTERNET request, std::function<void()> stop, std::function<bool()> abort,
                        std::uint64_t deadlineMs = 0);
    AsyncWinHttpRequest(const AsyncWinHttpRequest&) = delete;
    AsyncWinHttpRequest& operator=(const AsyncWinHttpRequest&) = delete;
    ~AsyncWinHttpRequest();

    /// Each operation returns when its completion was reported. On false the thread's last error holds the reason: a
    /// WinHTTP error, 12004 if this object could not be set up, 12017 if `abort` or the deadline came first. A wait
    /// that was ended so has closed the handle. After any false nothing writes into a buffer any more.

    /// `headers` is text with CR LF behind each line; `headerLength` counts characters.
    [[nodiscard]] bool Send(const wchar_t* headers, DWORD headerLength);
    [[nodiscard]] bool Receive();
    /// Bytes that a read would get now; 0 at the end of the body.
    [[nodiscard]] bool QueryAvailable(DWORD& count);
    /// `buffer` must outlive this object unless `Read` has returned.
    [[nodiscard]] bool Read(void* buffer, DWORD capacity, DWORD& count);

  private:
    static void CALLBACK OnStatus(HINTERNET handle, DWORD_PTR context, DWORD status, void* information,
                                  DWORD informationLength);
    void Complete(DWORD status, const void* information, DWORD informationLength);
    [[nodiscard]] bool MustEnd() const;
    [[nodiscard]] bool Begin(DWORD awaitedStatus);
    [[nodiscard]] bool Await(BOOL started);
    [[nodiscard]] bool EndByStop();
    void SignalDone();

    HINTERNET request_;
    std::function<void()> stop_;
    std::function<bool()> abort_;
    std::uint64_t deadlineMs_;
    const DWORD owner_ = GetCurrentThreadId();
    bool doneInline_ = false;        // the result came on the owner's own thread, inside the call that began it
    bool doneSignalled_ = false;     // `done_` has to be reset before the next operation
    platform::KernelHandle done_;    // manual reset: the operation in flight has its result
    platform::KernelHandle closed_;  // manual reset: WinHTTP has made its last call
    std::atomic<std::uint32_t> expected_{0};
    std::atomic<std::uint32_t> bytes_{0};
    std::atomic<std::uint32_t> error_{0};
    bool valid_ = false;
};

}  // namespace launcher_download
