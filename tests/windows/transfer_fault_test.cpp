#include "tests/windows/transfer_fixture.h"

#include <memory>

#include "download/cache.h"
#include "download/cache_file.h"
#include "tests/support/import_hook.h"
#include "tests/support/stand_in.h"

namespace launcher_download {
namespace {

using test_support::FaultKind;
using test_support::ForcedAttributes;
using test_support::MutationFaults;
using test_support::StandIn;

// A real error of the library, and one that no rule of the engine knows.
constexpr DWORD kStrangeError = 12157;

constexpr DWORD kRedirectPolicy = 88;
constexpr DWORD kContextValue = 45;
constexpr DWORD kDisableFeature = 63;
constexpr DWORD kHeaderWait = 7;

using OnOpen = StandIn<"WinHttpOpen", decltype(WinHttpOpen)>;
using OnConnect = StandIn<"WinHttpConnect", decltype(WinHttpConnect)>;
using OnOpenRequest = StandIn<"WinHttpOpenRequest", decltype(WinHttpOpenRequest)>;
using OnSetTimeouts = StandIn<"WinHttpSetTimeouts", decltype(WinHttpSetTimeouts)>;
using OnSetOption = StandIn<"WinHttpSetOption", decltype(WinHttpSetOption)>;
using OnSetCallback = StandIn<"WinHttpSetStatusCallback", decltype(WinHttpSetStatusCallback)>;
using OnSend = StandIn<"WinHttpSendRequest", decltype(WinHttpSendRequest)>;
using OnReceive = StandIn<"WinHttpReceiveResponse", decltype(WinHttpReceiveResponse)>;
using OnQueryHeaders = StandIn<"WinHttpQueryHeaders", decltype(WinHttpQueryHeaders)>;
using OnQueryAvailable = StandIn<"WinHttpQueryDataAvailable", decltype(WinHttpQueryDataAvailable)>;
using OnRead = StandIn<"WinHttpReadData", decltype(WinHttpReadData)>;
using OnCloseInternet = StandIn<"WinHttpCloseHandle", decltype(WinHttpCloseHandle)>;
using OnCreateFile = StandIn<"CreateFileW", decltype(CreateFileW)>;
using OnCreateDirectory = StandIn<"CreateDirectoryW", decltype(CreateDirectoryW)>;
using OnGetAttributes = StandIn<"GetFileAttributesW", decltype(GetFileAttributesW)>;
using OnFileInformation = StandIn<"GetFileInformationByHandle", decltype(GetFileInformationByHandle)>;
using OnFileSize = StandIn<"GetFileSizeEx", decltype(GetFileSizeEx)>;
using OnSeek = StandIn<"SetFilePointerEx", decltype(SetFilePointerEx)>;
using OnWriteFile = StandIn<"WriteFile", decltype(WriteFile)>;
using OnHashData = StandIn<"BCryptHashData", decltype(BCryptHashData)>;

BOOL Refuse(DWORD error) {
    SetLastError(error);
    return FALSE;
}

/// True for a handle of a payload; the trace and the resume file are written by the same functions.
bool IsPayload(HANDLE file) {
    wchar_t path[MAX_PATH];
    const DWORD length = GetFinalPathNameByHandleW(file, path, MAX_PATH, 0);
    return length < MAX_PATH && std::wstring_view(path, length).ends_with(L".part");
}

/// Refuses one option wherever it is set.
auto RefusingOption(DWORD refused) {
    return [refused](HINTERNET handle, DWORD option, LPVOID value, DWORD length) {
        return option == refused ? Refuse(kStrangeError) : OnSetOption::Original(handle, option, value, length);
    };
}

class Transfer_Fault : public TransferTest {
  protected:
    /// Fetches a good payload, whose transfer must then end for this reason alone.
    void ExpectFault(const wchar_t* reason, DWORD osError, std::uint32_t httpStatus) {
        const Result result = Fetch(Whole(payload_));
        ExpectFailure(result, reason);
        EXPECT_EQ(result.osError, osError);
        EXPECT_EQ(result.httpStatus, httpStatus);
    }
    void ExpectWhole() { ExpectSuccess(Fetch(Whole(payload_))); }
};

// The conversation

TEST_F(Transfer_Fault, ASessionThatCannotBeMade_IsFinal) {
    const OnOpen open([](auto...) {
        SetLastError(kStrangeError);
        return nullptr;
    });
    ExpectFault(L"session-failed", kStrangeError, 0);
    EXPECT_EQ(Course(), (std::vector{Phase::connecting, Phase::failed}));
}

TEST_F(Transfer_Fault, ARefusedTimeout_IsFinalAndHasNoErrorOfItsOwn) {
    for (int refused = 1; refused <= 3; ++refused) {
        SCOPED_TRACE(refused);
        int calls = 0;
        const OnSetTimeouts timeouts([&](HINTERNET handle, int resolve, int connect, int send, int receive) {
            if (++calls == refused) return Refuse(kStrangeError);
            return OnSetTimeouts::Original(handle, resolve, connect, send, receive);
        });
        ExpectFault(L"timeout-policy-failed", 0, refused == 3 ? 200 : 0);
        EXPECT_EQ(calls, refused);
        EXPECT_EQ(FileLength(PartPath()), 0);
    }
}

TEST_F(Transfer_Fault, ARefusedWaitForHeaders_IsATimeoutPolicyToo) {
    const OnSetOption options(RefusingOption(kHeaderWait));
    ExpectFault(L"timeout-policy-failed", 0, 0);
}

TEST_F(Transfer_Fault, ARefusedRedirectPolicy_IsFinal) {
    const OnSetOption options(RefusingOption(kRedirectPolicy));
    ExpectFault(L"redirect-policy-failed", 0, 0);
}

TEST_F(Transfer_Fault, CookiesThatCannotBeSwitchedOff_AreNoHindrance) {
    const OnSetOption options(RefusingOption(kDisableFeature));
    ExpectWhole();
}

TEST_F(Transfer_Fault, AConnectionThatCannotBeMade_IsFinal) {
    const OnConnect connect([](auto...) {
        SetLastError(kStrangeError);
        return nullptr;
    });
    ExpectFault(L"connect-failed", kStrangeError, 0);
}

TEST_F(Transfer_Fault, ARequestThatCannotBeMade_IsFinal) {
    const OnOpenRequest request([](auto...) {
        SetLastError(kStrangeError);
        return nullptr;
    });
    ExpectFault(L"request-failed", kStrangeError, 0);
}

TEST_F(Transfer_Fault, AWaitThatCannotBeSetUp_IsAnInternalError) {
    {
        const OnSetOption options(RefusingOption(kContextValue));
        ExpectFault(L"connection-failed", 12004, 0);
    }
    const OnSetCallback callback(
        [](auto...) { return reinterpret_cast<WINHTTP_STATUS_CALLBACK>(static_cast<DWORD_PTR>(-1)); });
    ExpectFault(L"connection-failed", 12004, 0);
}

TEST_F(Transfer_Fault, AnErrorOfTheRequestRatherThanTheRoad_IsFinal) {
    {
        const OnSend send([](auto...) { return Refuse(kStrangeError); });
        ExpectFault(L"connection-failed", kStrangeError, 0);
    }
    const OnReceive receive([](auto...) { return Refuse(kStrangeError); });
    ExpectFault(L"connection-failed", kStrangeError, 0);
}

TEST_F(Transfer_Fault, AStatusThatCannotBeRead_IsAnInvalidResponse) {
    const OnQueryHeaders headers(
        [](HINTERNET handle, DWORD flags, LPCWSTR name, LPVOID value, LPDWORD length, LPDWORD index) {
            if (flags == 0x20000013) return Refuse(kStrangeError);
            return OnQueryHeaders::Original(handle, flags, name, value, length, index);
        });
    ExpectFault(L"invalid-response", 0, 0);
}

TEST_F(Transfer_Fault, AnUnknownErrorInTheBody_IsFinal) {
    {
        const OnQueryAvailable available([](auto...) { return Refuse(kStrangeError); });
        ExpectFault(L"receive-failed", kStrangeError, 200);
    }
    const OnRead read([](auto...) { return Refuse(kStrangeError); });
    ExpectFault(L"receive-failed", kStrangeError, 200);
    EXPECT_EQ(Course(), (std::vector{Phase::connecting, Phase::receiving, Phase::failed}));
}

TEST_F(Transfer_Fault, AReadOfNothing_EndsTheBody) {
    // Bytes were announced and none came: what is held then is judged as a short body, not as an error.
    const OnRead read([](HINTERNET handle, LPVOID buffer, DWORD, LPDWORD count) {
        return OnRead::Original(handle, buffer, 0, count);
    });
    const Result result = Fetch(WithLength(Whole(payload_), ""));
    ExpectExhausted(result);
    EXPECT_EQ(result.osError, 0u);
    EXPECT_EQ(FileLength(PartPath()), 0);
}

TEST_F(Transfer_Fault, ACancelBehindTheHeaders_JudgesNothingMore) {
    int timeoutsSet = 0;
    const OnSetTimeouts timeouts([&](HINTERNET handle, int resolve, int connect, int send, int receive) {
        ++timeoutsSet;
        return OnSetTimeouts::Original(handle, resolve, connect, send, receive);
    });
    callbacks_.cancelled = [&timeoutsSet] { return timeoutsSet == 3; };
    const Result result = Fetch(Whole(payload_));
    ExpectCancelled(result);
    EXPECT_EQ(result.httpStatus, 200u);
    EXPECT_EQ(Course(), (std::vector{Phase::connecting, Phase::cancelled}));
}

WINHTTP_STATUS_CALLBACK g_transfersCallback;

/// Tells the transfer of a whole mebibyte wherever anything is there.
void CALLBACK BoastOfAMebibyte(HINTERNET handle, DWORD_PTR context, DWORD status, LPVOID information, DWORD length) {
    DWORD boast = 1u << 20;
    const bool available = status == WINHTTP_CALLBACK_STATUS_DATA_AVAILABLE && *static_cast<DWORD*>(information) != 0;
    g_transfersCallback(handle, context, status, available ? &boast : information, length);
}

TEST_F(Transfer_Fault, MoreThanTheBufferHolds_IsNeverAskedFor) {
    payload_ = MakePayload(400000);
    const OnSetCallback callback([](HINTERNET handle, WINHTTP_STATUS_CALLBACK wanted, DWORD mask, DWORD_PTR reserved) {
        g_transfersCallback = wanted;
        return OnSetCallback::Original(handle, BoastOfAMebibyte, mask, reserved);
    });
    DWORD largest = 0;
    const OnRead read([&largest](HINTERNET handle, LPVOID buffer, DWORD capacity, LPDWORD count) {
        largest = std::max(largest, capacity);
        return OnRead::Original(handle, buffer, std::min<DWORD>(capacity, 65536), count);
    });
    ExpectWhole();
    EXPECT_EQ(largest, 65536u);
}

// The cache file

TEST_F(Transfer_Fault, AFullDisk_IsToldWithItsError) {
    for (const FaultKind kind : {FaultKind::fail, FaultKind::failTorn}) {
        MutationFaults faults(kind, 1, ERROR_DISK_FULL);
        faults.CountOnly("WriteFile", L".part");
        ExpectFault(L"write-failed", ERROR_DISK_FULL, 200);
        EXPECT_TRUE(faults.Reached());
        EXPECT_EQ(reports_.back().bytes, 0u);
        EXPECT_EQ(reports_.back().networkBytes, 0u);
    }
}

TEST_F(Transfer_Fault, AWriteOfNothing_IsNoSuccessAndHasNoError) {
    const OnWriteFile write([](HANDLE, LPCVOID, DWORD, LPDWORD written, LPOVERLAPPED) {
        *written = 0;
        return TRUE;
    });
    SetLastError(kStrangeError);
    EXPECT_FALSE(WriteAll(GetCurrentProcess(), "x", 1));
    EXPECT_EQ(GetLastError(), 0u);
    ExpectFault(L"write-failed", 0, 200);
}

TEST_F(Transfer_Fault, AWriteInPieces_IsContinued) {
    const OnWriteFile write([](HANDLE file, LPCVOID bytes, DWORD length, LPDWORD written, LPOVERLAPPED overlapped) {
        return OnWriteFile::Original(file, bytes, std::min<DWORD>(length, 7), written, overlapped);
    });
    ExpectWhole();
}

TEST_F(Transfer_Fault, ABodyThatCannotBeForcedOut_IsNoPayload) {
    MutationFaults faults(FaultKind::fail, 1);
    faults.CountOnly("FlushFileBuffers", L".part");
    ExpectFault(L"flush-failed", 0, 200);
    EXPECT_EQ(Course(), (std::vector{Phase::connecting, Phase::receiving, Phase::failed}));
}

TEST_F(Transfer_Fault, EveryFinalFailure_ForcesTheFileOut) {
    MutationFaults faults;
    faults.CountOnly("FlushFileBuffers", L".part");
    ExpectFailure(Fetch(WithStatus(Reply{}, "404 Not Found")), L"http-error");
    EXPECT_EQ(faults.Count(), 1u);
}

TEST_F(Transfer_Fault, ACacheFileThatCannotBeSought_IsFinal) {
    const OnSeek seek([](HANDLE file, LARGE_INTEGER distance, PLARGE_INTEGER now, DWORD method) {
        return IsPayload(file) ? Refuse(ERROR_INVALID_FUNCTION) : OnSeek::Original(file, distance, now, method);
    });
    ExpectFault(L"cache-seek-failed", 0, 200);
    EXPECT_EQ(Course(), (std::vector{Phase::connecting, Phase::failed}));
}

/// Each of the three steps of emptying the file fails, in each of the situations that need it.
TEST_F(Transfer_Fault, ACacheFileThatCannotBeEmptied_IsFinal) {
    std::string damaged = payload_;
    damaged[0] = static_cast<char>(damaged[0] ^ 1);
    const std::string leftovers[] = {payload_.substr(0, 400), payload_ + "x", damaged};
    for (const std::string& leftover : leftovers) {
        SCOPED_TRACE(leftover.size());
        for (const char* function : {"SetEndOfFile", "FlushFileBuffers"}) {
            LeavePart(leftover);
            MutationFaults faults(FaultKind::fail, 1);
            faults.CountOnly(function, L".part");
            const Result result = Fetch(L"http://127.0.0.1:1/x");
            EXPECT_EQ(result.reason, L"cache-reset-failed") << function;
            EXPECT_TRUE(faults.Reached());
            EXPECT_EQ(result.attempts, 0u);
            EXPECT_EQ(reports_.back().phase, Phase::failed);
        }
        LeavePart(leftover);
        int seeks = 0;
        // The digest of a complete file seeks first.
        const int refused = leftover.size() == payload_.size() ? 2 : 1;
        const OnSeek seek([&](HANDLE file, LARGE_INTEGER distance, PLARGE_INTEGER now, DWORD method) {
            return IsPayload(file) && ++seeks == refused ? Refuse(ERROR_INVALID_FUNCTION)
                                                         : OnSeek::Original(file, distance, now, method);
        });
        EXPECT_EQ(Fetch(L"http://127.0.0.1:1/x").reason, L"cache-reset-failed");
        EXPECT_EQ(seeks, refused);
    }
}

TEST_F(Transfer_Fault, AForeignPartThatCannotBeDropped_IsFinal) {
    MutationFaults faults(FaultKind::fail, 1);
    faults.CountOnly("SetEndOfFile", L"");
    ExpectFailure(Fetch(WithStatus(Whole(payload_), "206 Partial Content")), L"cache-reset-failed");
    EXPECT_TRUE(faults.Reached());
    EXPECT_FALSE(reports_.back().restarted);
}

TEST_F(Transfer_Fault, WrongBytesThatCannotBeDropped_AreStillToldAsWrong) {
    std::string wrong = payload_;
    wrong.back() = static_cast<char>(wrong.back() ^ 1);
    MutationFaults faults(FaultKind::fail, 1);
    faults.CountOnly("SetEndOfFile", L"");
    ExpectFailure(Fetch(Whole(wrong)), L"sha256-mismatch");
    EXPECT_TRUE(faults.Reached());
}

TEST_F(Transfer_Fault, AnUnreadableLength_CostsTheFile) {
    LeavePart(payload_);
    LoopbackServer server(Whole(payload_));
    bool asked = false;
    const OnFileSize size([&asked](HANDLE file, PLARGE_INTEGER length) {
        if (!asked) return asked = true, Refuse(ERROR_INVALID_FUNCTION);
        return OnFileSize::Original(file, length);
    });
    ExpectSuccess(Fetch(server.Url()));
    EXPECT_TRUE(asked);
    EXPECT_EQ(server.Requests().size(), 1u);
    EXPECT_EQ(Course(), (std::vector{Phase::connecting, Phase::receiving, Phase::verifying, Phase::complete}));
}

TEST_F(Transfer_Fault, AFileThatIsNotProvedRegular_IsUnavailable) {
    struct Row {
        const char* name;
        DWORD addedAttributes;
        DWORD links;
        bool readable;
    };
    const Row rows[] = {{"link", FILE_ATTRIBUTE_REPARSE_POINT, 1, true},
                        {"directory", FILE_ATTRIBUTE_DIRECTORY, 1, true},
                        {"second name", 0, 2, true},
                        {"no name", 0, 0, true},
                        {"unreadable", 0, 1, false}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        LeavePart("precious");
        {
            const OnFileInformation information([&row](HANDLE file, LPBY_HANDLE_FILE_INFORMATION facts) {
                if (!row.readable) return Refuse(ERROR_INVALID_FUNCTION);
                const BOOL good = OnFileInformation::Original(file, facts);
                facts->dwFileAttributes |= row.addedAttributes;
                facts->nNumberOfLinks = row.links;
                return good;
            });
            ExpectRefusal(Fetch(L"https://host.example/x"), L"cache-file-unavailable");
        }
        EXPECT_EQ(ReadWholeFile(PartPath()), "precious");
    }
}

TEST_F(Transfer_Fault, BytesThatCannotBeHashed_AreNoPayload) {
    const OnHashData hash([](auto...) { return static_cast<NTSTATUS>(0xC0000001); });
    std::wstring unused;
    ASSERT_FALSE(platform::Sha256OfMemory("x", 1, unused));
    Request request;
    request.url = L"";
    request.sha256 = std::wstring(64, L'a');
    request.cacheDirectory = top_ / L"cache";
    request.size = payload_.size();
    LoopbackServer server(Whole(payload_));
    request.url = server.Url();
    ExpectFailure(Fetch(request), L"sha256-mismatch");
    EXPECT_EQ(FileLength(top_ / (L"cache\\" + request.sha256 + L".part")), 0);
}

TEST_F(Transfer_Fault, ADirectoryThatCannotBeMade_IsUnsafe) {
    const OnCreateDirectory create([](auto...) { return Refuse(ERROR_ACCESS_DENIED); });
    ExpectRefusal(Fetch(L"https://host.example/x"), L"unsafe-or-full-cache");
}

TEST_F(Transfer_Fault, ADirectoryThatAnotherMakesFirst_IsTaken) {
    const OnCreateDirectory create([](LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
        OnCreateDirectory::Original(path, security);
        return Refuse(ERROR_ALREADY_EXISTS);
    });
    ExpectWhole();
}

TEST_F(Transfer_Fault, ALinkOnTheWayToTheCache_IsUnsafe) {
    Request request = RequestFor(L"https://host.example/x");
    request.cacheDirectory = top_ / L"link\\cache";
    {
        const ForcedAttributes forced(L"\\link", FILE_ATTRIBUTE_REPARSE_POINT);
        ExpectRefusal(Fetch(request), L"unsafe-or-full-cache");
    }
    EXPECT_EQ(GetFileAttributesW(request.cacheDirectory.c_str()), INVALID_FILE_ATTRIBUTES);
    const ForcedAttributes forced(L"\\cache", FILE_ATTRIBUTE_REPARSE_POINT);
    ExpectRefusal(Fetch(request), L"unsafe-or-full-cache");
}

// What the calls are given

TEST_F(Transfer_Fault, TheCacheFile_IsOpenedUnsharedAndWithoutFollowingALink) {
    struct Opening {
        std::wstring path;
        DWORD access, share, disposition, flags;
    };
    std::vector<Opening> openings;
    const OnCreateFile create([&](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                                  DWORD disposition, DWORD flags, HANDLE other) {
        if (std::wstring_view(path).ends_with(L".part")) openings.push_back({path, access, share, disposition, flags});
        return OnCreateFile::Original(path, access, share, security, disposition, flags, other);
    });
    EXPECT_TRUE(Fetch(Whole(payload_)).success);
    ASSERT_EQ(openings.size(), 1u);
    EXPECT_EQ(openings[0].path, L"\\\\?\\" + PartPath());
    EXPECT_EQ(openings[0].access, 0xC0000000u);
    EXPECT_EQ(openings[0].share, 0u);
    EXPECT_EQ(openings[0].disposition, 4u);
    EXPECT_EQ(openings[0].flags, 0x200080u);
}

TEST_F(Transfer_Fault, TheCacheDirectory_IsReachedByTheLongForm) {
    std::vector<std::wstring> paths;
    const auto prefixed = [&] {
        return std::all_of(paths.begin(), paths.end(), [](const auto& path) { return path.starts_with(L"\\\\?\\"); });
    };
    const OnCreateDirectory create([&](LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
        paths.emplace_back(path);
        return OnCreateDirectory::Original(path, security);
    });
    const OnGetAttributes attributes([&](LPCWSTR path) {
        paths.emplace_back(path);
        return OnGetAttributes::Original(path);
    });
    std::wstring normalised;
    ASSERT_TRUE(PrepareSafeDirectory(top_ / L"a\\b", normalised));
    EXPECT_GT(paths.size(), 4u);
    EXPECT_TRUE(prefixed());
    EXPECT_EQ(normalised, top_ / L"a\\b");
}

TEST_F(Transfer_Fault, AFullPathThatIsNoPlaceOnADrive_IsNotEvenLookedAt) {
    using OnFullPath = StandIn<"GetFullPathNameW", decltype(GetFullPathNameW)>;
    struct Row {
        const wchar_t* full;
        DWORD length;
    };
    for (const Row& row :
         {Row{L"\\\\.\\nul", 7}, {L"\\\\server\\share", 14}, {L"C:\\a:b", 6}, {L"", 0}, {L"C:\\a", 32768}}) {
        const OnFullPath fullPath([&row](LPCWSTR, DWORD, LPWSTR buffer, LPWSTR*) {
            std::copy_n(row.full, std::wstring_view(row.full).size() + 1, buffer);
            return row.length;
        });
        int looks = 0;
        const OnGetAttributes attributes([&looks](LPCWSTR path) {
            ++looks;
            return OnGetAttributes::Original(path);
        });
        std::wstring normalised;
        EXPECT_FALSE(PrepareSafeDirectory(top_ / L"a", normalised)) << platform::EncodeUtf8(row.full);
        EXPECT_EQ(looks, 0) << platform::EncodeUtf8(row.full);
    }
}

struct Waits {
    HINTERNET handle;
    std::vector<int> ms;
};

/// What a conversation is given, call by call, and its handles.
struct Conversation {
    std::wstring agent;
    DWORD accessType = 0;
    DWORD sessionFlags = 0;
    std::wstring verb;
    bool bareRequest = false;
    DWORD requestFlags = ~0u;
    DWORD notifications = 0;
    std::wstring sent;
    HINTERNET session = nullptr;
    HINTERNET connection = nullptr;
    HINTERNET request = nullptr;
    std::vector<Waits> waits;
    std::vector<std::pair<DWORD, DWORD>> sessionOptions;
    std::vector<std::pair<DWORD, DWORD>> requestOptions;  // the context value's is not kept
    std::vector<HINTERNET> closed;
    DWORD largestRead = 0;

    OnOpen onOpen{[this](LPCWSTR name, DWORD access, LPCWSTR proxy, LPCWSTR bypass, DWORD flags) {
        agent = name;
        accessType = access;
        sessionFlags = flags;
        return session = OnOpen::Original(name, access, proxy, bypass, flags);
    }};
    OnConnect onConnect{[this](HINTERNET owner, LPCWSTR host, INTERNET_PORT port, DWORD reserved) {
        return connection = OnConnect::Original(owner, host, port, reserved);
    }};
    OnOpenRequest onOpenRequest{[this](HINTERNET owner, LPCWSTR method, LPCWSTR object, LPCWSTR version,
                                       LPCWSTR referrer, LPCWSTR* types, DWORD flags) {
        verb = method;
        bareRequest = version == nullptr && referrer == nullptr && types == nullptr;
        requestFlags = flags;
        return request = OnOpenRequest::Original(owner, method, object, version, referrer, types, flags);
    }};
    OnSetTimeouts onTimeouts{[this](HINTERNET handle, int resolve, int connect, int send, int receive) {
        waits.push_back({handle, {resolve, connect, send, receive}});
        return OnSetTimeouts::Original(handle, resolve, connect, send, receive);
    }};
    OnSetOption onOption{[this](HINTERNET handle, DWORD option, LPVOID value, DWORD length) {
        auto& options = handle == session ? sessionOptions : requestOptions;
        options.emplace_back(option, option == kContextValue ? 0 : *static_cast<const DWORD*>(value));
        return OnSetOption::Original(handle, option, value, length);
    }};
    OnSetCallback onCallback{[this](HINTERNET handle, WINHTTP_STATUS_CALLBACK callback, DWORD mask, DWORD_PTR context) {
        notifications = mask;
        return OnSetCallback::Original(handle, callback, mask, context);
    }};
    OnRead onRead{[this](HINTERNET handle, LPVOID buffer, DWORD capacity, LPDWORD count) {
        largestRead = std::max(largestRead, capacity);
        return OnRead::Original(handle, buffer, capacity, count);
    }};
    OnCloseInternet onClose{[this](HINTERNET handle) {
        closed.push_back(handle);
        return OnCloseInternet::Original(handle);
    }};
};

TEST_F(Transfer_Fault, TheConversation_KeepsItsTermsOnLoopback) {
    payload_ = MakePayload(3000000);
    LoopbackServer server(Whole(payload_));
    const auto seen = std::make_unique<Conversation>();
    ExpectSuccess(Fetch(server.Url()));
    EXPECT_EQ(seen->agent, L"Velmora Pine Relay Launcher");
    EXPECT_EQ(seen->accessType, 4u);
    EXPECT_EQ(seen->sessionFlags, 0x10000000u);
    EXPECT_EQ(seen->verb, L"GET");
    EXPECT_TRUE(seen->bareRequest);
    EXPECT_EQ(seen->requestFlags, 0u);
    EXPECT_EQ(seen->notifications, 0x097E0C00u);
    ASSERT_EQ(seen->waits.size(), 3u);
    EXPECT_EQ(seen->waits[0].handle, seen->session);
    EXPECT_EQ(seen->waits[0].ms, (std::vector{5000, 5000, 5000, 5000}));
    EXPECT_EQ(seen->waits[1].handle, seen->request);
    EXPECT_EQ(seen->waits[1].ms, (std::vector{5000, 5000, 5000, 10000}));
    EXPECT_EQ(seen->waits[2].handle, seen->request);
    EXPECT_EQ(seen->waits[2].ms, (std::vector{5000, 5000, 5000, 5000}));
    EXPECT_EQ(seen->sessionOptions, (std::vector<std::pair<DWORD, DWORD>>{{kRedirectPolicy, 0}}));
    EXPECT_EQ(seen->requestOptions,
              (std::vector<std::pair<DWORD, DWORD>>{{kContextValue, 0}, {kHeaderWait, 10000}, {kDisableFeature, 1}}));
    EXPECT_EQ(seen->closed, (std::vector{seen->request, seen->connection, seen->session}));
    EXPECT_LE(seen->largestRead, 65536u);
    EXPECT_GT(seen->largestRead, 0u);
}

TEST_F(Transfer_Fault, TheConversation_IsSecureEverywhereElse) {
    const OnSend send([](auto...) { return Refuse(kStrangeError); });
    const auto seen = std::make_unique<Conversation>();
    ExpectFailure(Fetch(L"https://127.0.0.1:1/x"), L"connection-failed");
    EXPECT_EQ(seen->requestFlags, 0x800000u);
    EXPECT_EQ(seen->sessionOptions, (std::vector<std::pair<DWORD, DWORD>>{{kRedirectPolicy, 1}}));
    EXPECT_EQ(seen->closed, (std::vector{seen->request, seen->connection, seen->session}));
}

}  // namespace
}  // namespace launcher_download
