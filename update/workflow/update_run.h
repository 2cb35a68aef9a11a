#pragma once

/// What one run of the workflow was given and has found out so far, and the ways in which it is left. Internal to the
/// workflow; one thread.

#include <cstdint>
#include <optional>
#include <string>

#include "update/installed/layout.h"
#include "update/manifest/update_manifest.h"
#include "update/settings.h"

namespace launcher_update {

/// What the run knows for the record of a full verification. A missing fact only means that hashing is not spared.
struct VerifiedState {
    UpdateManifest manifest;                // untouched
    std::wstring manifestDigest;            // of the bytes as fetched; empty when it could not be taken
    std::optional<InstalledLayout> layout;  // as found before the verification
    std::wstring priorDigest;               // of the files' identities before the verification
};

struct UpdateRun {
    std::wstring root;
    Settings settings;
    bool forceCheck = false;
    bool verificationMode = false;
    std::wstring manifestUrl;        // effective primary location
    std::wstring backupManifestUrl;  // empty when there is none

    Result result;
    bool due = false;
    bool fromBackup = false;
    std::string manifestBytes;  // as fetched
    UpdateManifest manifest;    // from the file check on, `files` holds only what differs
    int versionOrder = 0;       // of the manifest against the installed version
    bool needPackages = false;  // neither an activated nor a portable set of the manifest's packages is in place
    VerifiedState verified;
};

/// What a step of the workflow says: go on with the next, or leave with the run's result.
enum class Next { goOn, leave };

/// Outcome `Failed`; the installed version may start.
Next LeaveFailed(UpdateRun& run, std::wstring error);

/// Outcome `Failed`; the application must not start.
Next LeaveUnsafe(UpdateRun& run, std::wstring error);

/// A conclusion that the user need not see again before the interval has passed.
Next LeaveConcluded(UpdateRun& run, Outcome outcome, Stage stage);

}  // namespace launcher_update
