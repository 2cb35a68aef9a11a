#pragma once

#include <string>

#include "download/resume_format.h"

namespace launcher_download {

/// SHA-256 of the URL's UTF-16 units as they stand in memory; empty if it cannot be had.
[[nodiscard]] std::wstring HashUrl(const std::wstring& url);

/// The state in the file at `path`; an empty one if the file is missing, not a regular file, too long or malformed.
[[nodiscard]] ResumeState ReadResumeState(const std::wstring& path);

/// Replaces the file at `path`: a sibling with ".tmp" behind its name is written, forced out and renamed. Between the
/// old file's end and the rename there is no file, so that a crash there costs the retained bytes and no more. On
/// failure the sibling may stay, which the next write removes. False for a state that may not be written.
[[nodiscard]] bool WriteResumeState(const std::wstring& path, const ResumeState& state);

}  // namespace launcher_download
