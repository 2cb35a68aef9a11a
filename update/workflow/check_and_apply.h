#pragma once

#include <string>

#include "update/settings.h"

namespace launcher_update {

/// The update workflow, from the decision to the commit: one synchronous function on the worker's thread. `settings` is
/// copied at the start. `root` is the launcher's folder, without a separator at its end.
///
/// `forceCheck` ignores the schedule. `verificationMode` takes local files as sources, tries each source once, asks
/// nobody and takes the backup's location from the settings. `manifestUrlOverride`, if not empty, replaces the primary
/// location.
///
/// Everything is staged and verified before the installed tree is touched; the tree is touched only under a durable
/// journal; one rename commits. A failure leaves the tree whole and `safeToLaunch` true, unless a rollback could not be
/// finished or another launcher holds the lock.
[[nodiscard]] Result CheckAndApply(const std::wstring& root, const Settings& settings, bool forceCheck,
                                   bool verificationMode, const std::wstring& manifestUrlOverride);

}  // namespace launcher_update
