#include "download/async_request.h"

#include <utility>

#include "download/retry_rules.h"

namespace launcher_download {
namespace {

constexpr DWORD kWaitSliceMs = 25;  // an abort takes effect within this time

// All completions, and the creation and closing of handles.
constexpr DWORD kNotifications = 0x097E0C00;

static_assert(winhttp_error::kTimeout == ERROR_WINHTTP_TIMEOUT);
static_assert(winhttp_error::kInternalError == ERROR_WINHTTP_INTERNAL_ERROR);
static_assert(winhttp_error::kNameNotResolved == ERROR_WINHTTP_NAME_NOT_RESOLVED);
static_assert(winhttp_error::kOperationCancelled == ERROR_WINHTTP_OPERATION_CANCELLED);
static_assert(winhttp_error::kCannotConnect == ERROR_WINHTTP_CANNOT_CONNECT);
static_assert(winhttp_error::kConnectionError == ERROR_WINHTTP_CONNECTION_ERROR);
static_assert(winhttp_error::kResendRequest == ERROR_WINHTTP_RESEND_REQUEST);

/// Some implementations of WinHTTP let the socket's own error through; everyone behind this class judges by WinHTTP's.
constexpr std::uint32_t AsWinHttpError(std::uint32_t error) {
    switch (error) {
        case WSAETIMEDOUT:
            return winhttp_error::kTimeout;
        case WSAECONNABORTED:
        case WSAECONNRESET:
            return winhttp_error::kConnectionError;
        default:
            return error;
    }
}

bool FailWith(std::uint32_t error) {
    SetLastError(AsWinHttpError(error));
    return false;
}

platform::KernelHandle MakeManualResetEvent() {
    return platform::KernelHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr));
}

bool SetContext(HINTERNET request, AsyncWinHttpRequest* self) {
    auto context = reinterpret_cast<DWORD_PTR>(self);
    return WinHttpSetOption(request, WINHTTP_OPTION_CONTEXT_VALUE, &context, sizeof(context)) != FALSE;
}

bool InstallCallback(HINTERNET request, WINHTTP_STATUS_CALLBACK callback) {
    // WINHTTP_INVALID_STATUS_CALLBACK, whose definition needs a cast that the house rules refuse.
    const auto refused = reinterpret_cast<WINHTTP_STATUS_CALLBACK>(static_cast<DWORD_PTR>(-1));
    return WinHttpSetStatusCallback(request, callback, kNotifications, 0) != refused;
}

}  // namespace

AsyncWinHttpRequest::AsyncWinHttpRequest(HINTERNET request, std::function<void()> stop, std::function<bool()> abort,
                                         std::uint64_t deadlineMs)
    : request_(request),
      stop_(std::move(stop)),
      abort_(std::move(abort)),
      deadlineMs_(deadlineMs),
      done_(MakeManualResetEvent()),
      closed_(MakeManualResetEvent()) {
    // The callback last: from then on it may run.
    valid_ = done_ && closed_ && SetContext(request_, this) && InstallCallback(request_, &OnStatus);
}

AsyncWinHttpRequest::~AsyncWinHttpRequest() {
    stop_();
    if (valid_) WaitForSingleObject(closed_.Get(), INFINITE);
}

bool AsyncWinHttpRequest::Send(const wchar_t* headers, DWORD headerLength) {
    if (!Begin(WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE)) return false;
    return Await(WinHttpSendRequest(request_, headers, headerLength, WINHTTP_NO_REQUEST_DATA, 0, 0,
                                    reinterpret_cast<DWORD_PTR>(this)));
}

bool AsyncWinHttpRequest::Receive() {
    if (!Begin(WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE)) return false;
    return Await(WinHttpReceiveResponse(request_, nullptr));
}

bool AsyncWinHttpRequest::QueryAvailable(DWORD& count) {
    count = 0;
    if (!Begin(WINHTTP_CALLBACK_STATUS_DATA_AVAILABLE)) return false;
    if (!Await(WinHttpQueryDataAvailable(request_, nullptr))) return false;
    count = bytes_.load();
    return true;
}

bool AsyncWinHttpRequest::Read(void* buffer, DWORD capacity, DWORD& count) {
    count = 0;
    if (!Begin(WINHTTP_CALLBACK_STATUS_READ_COMPLETE)) return false;
    if (!Await(WinHttpReadData(request_, buffer, capacity, nullptr))) return false;
    count = bytes_.load();
    return true;
}

bool AsyncWinHttpRequest::MustEnd() const {
    return (abort_ && abort_()) || (deadlineMs_ != 0 && GetTickCount64() >= deadlineMs_);
}

bool AsyncWinHttpRequest::Begin(DWORD awaitedStatus) {
    if (!valid_) return FailWith(winhttp_error::kInternalError);
    if (MustEnd()) return FailWith(winhttp_error::kOperationCancelled);
    if (std::exchange(doneSignalled_, false)) ResetEvent(done_.Get());
    doneInline_ = false;
    expected_.exchange(awaitedStatus);
    error_.exchange(0);
    bytes_.exchange(0);
    return true;
}

/// `started` is what the WinHTTP function returned, evaluated on the line that calls this, so the last error is its
/// own.
bool AsyncWinHttpRequest::Await(BOOL started) {
    if (!started) return FailWith(GetLastError());
    if (!doneInline_) {
        doneSignalled_ = true;
        while (WaitForSingleObject(done_.Get(), kWaitSliceMs) != WAIT_OBJECT_0) {
            if (MustEnd()) return EndByStop();
        }
    }
    const std::uint32_t error = error_.load();
    return error == 0 || FailWith(error);
}

bool AsyncWinHttpRequest::EndByStop() {
    stop_();
    WaitForSingleObject(closed_.Get(), INFINITE);
    return FailWith(winhttp_error::kOperationCancelled);
}

void CALLBACK AsyncWinHttpRequest::OnStatus(HINTERNET, DWORD_PTR context, DWORD status, void* information,
                                            DWORD informationLength) {
    // Session and connection handles report without a context.
    if (context == 0) return;
    reinterpret_cast<AsyncWinHttpRequest*>(context)->Complete(status, information, informationLength);
}

void AsyncWinHttpRequest::Complete(DWORD status, const void* information, DWORD informationLength) {
    if (status == WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING) {
        SetEvent(closed_.Get());
        return;  // the object may be gone from here on
    }
    if (status == WINHTTP_CALLBACK_STATUS_REQUEST_ERROR) {
        const auto* result = static_cast<const WINHTTP_ASYNC_RESULT*>(information);
        error_.exchange(result ? result->dwError : winhttp_error::kInternalError);
        SignalDone();
        return;
    }
    if (status != expected_.load()) return;
    if (status == WINHTTP_CALLBACK_STATUS_DATA_AVAILABLE && information) {
        bytes_.exchange(*static_cast<const DWORD*>(information));
    } else if (status == WINHTTP_CALLBACK_STATUS_READ_COMPLETE) {
        bytes_.exchange(informationLength);
    }
    SignalDone();
}

void AsyncWinHttpRequest::SignalDone() {
    if (GetCurrentThreadId() == owner_) {
        doneInline_ = true;
    } else {
        SetEvent(done_.Get());
    }
}

}  // namespace launcher_download
