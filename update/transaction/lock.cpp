#include "update/transaction/lock.h"

#include "update/files/paths.h"

namespace launcher_update {

TransactionLock::TransactionLock(const std::wstring& controlDirectory)
    : path_(ToLongPath(JoinPath(controlDirectory, L"transaction.lock"))),
      handle_(CreateFileW(path_.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_HIDDEN,
                          nullptr)) {}

TransactionLock::~TransactionLock() {
    if (!Held()) return;
    handle_.Reset();
    // Another launcher may open the file between these two lines. It then holds it unshared and this deletion fails.
    DeleteFileW(path_.c_str());
}

}  // namespace launcher_update
