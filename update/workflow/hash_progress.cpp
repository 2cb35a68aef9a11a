#include "update/workflow/hash_progress.h"

#include <windows.h>

#include <utility>

namespace launcher_update {
namespace {

constexpr std::uint64_t kReportIntervalMs = 100;

}  // namespace

HashProgressReporter::HashProgressReporter(const Settings& settings, std::uint64_t totalBytes)
    : settings_(settings), totalBytes_(totalBytes), lastReportMs_(GetTickCount64()) {
    NotifyStage(settings_, Stage::VerifyingFiles, L"", 0, totalBytes_);
}

void HashProgressReporter::BeginFile() {
    doneBytes_ += fileBytes_;
    fileBytes_ = 0;
}

void HashProgressReporter::Report(const std::wstring& displayPath, std::uint64_t fileBytes) {
    if (fileBytes == 0) BeginFile();
    fileBytes_ = fileBytes;
    const std::uint64_t now = GetTickCount64();
    if (now - lastReportMs_ < kReportIntervalMs) return;
    lastReportMs_ = now;
    NotifyStage(settings_, Stage::VerifyingFiles, displayPath, doneBytes_ + fileBytes_, totalBytes_);
}

void HashProgressReporter::FileDone(std::uint64_t sizeBytes) {
    doneBytes_ += sizeBytes;
    fileBytes_ = 0;
}

void HashProgressReporter::Complete() const {
    NotifyStage(settings_, Stage::VerifyingFiles, L"", totalBytes_, totalBytes_);
}

}  // namespace launcher_update
