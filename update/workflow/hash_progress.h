#pragma once

/// Progress of hashing installed files, as stage reports: at most one every 100 ms, so that the window's thread is not
/// flooded by a tree of small files.

#include <cstdint>
#include <string>

#include "update/settings.h"

namespace launcher_update {

class HashProgressReporter {
  public:
    /// Reports `VerifyingFiles` with 0 of `totalBytes` at once. `settings` must outlive the object.
    HashProgressReporter(const Settings& settings, std::uint64_t totalBytes);

    /// Counts what was read of the file before, if nobody has called it done.
    void BeginFile();

    /// Bytes read so far of one file; 0 begins it.
    void Report(const std::wstring& displayPath, std::uint64_t fileBytes);

    /// Counts the file that was begun as done by its size, whether or not it had to be read.
    void FileDone(std::uint64_t sizeBytes);

    /// Reports total of total.
    void Complete() const;

  private:
    const Settings& settings_;
    const std::uint64_t totalBytes_;
    std::uint64_t doneBytes_ = 0;  // of the files before
    std::uint64_t fileBytes_ = 0;
    std::uint64_t lastReportMs_;
};

}  // namespace launcher_update
