// Throws any text at the manifest parser. What it accepts must obey every rule of a manifest, as the rules are written
// down a second time for the tests.

#include <cstddef>
#include <cstdint>
#include <string>

#include "tests/fuzz/exact_text.h"
#include "tests/fuzz/require.h"
#include "tests/support/manifest_rules.h"
#include "update/manifest/json_reader.h"
#include "update/manifest/release_identity.h"
#include "update/manifest/release_notes.h"
#include "update/manifest/update_manifest.h"

using namespace launcher_update;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::wstring decoded;
    if (!DecodeUtf8Document({reinterpret_cast<const char*>(data), size}, decoded)) return 0;
    const ExactText exact(decoded);
    const std::wstring_view text = exact.View();
    UpdateManifest manifest;
    std::wstring error;
    const bool accepted = ParseUpdateManifest(text, manifest, error, false);
    VPR_REQUIRE(accepted == error.empty());
    if (!accepted) return 0;

    const std::string broken = test_support::BrokenRule(manifest);
    if (!broken.empty()) std::fprintf(stderr, "accepted against the rule: %s\n", broken.c_str());
    VPR_REQUIRE(broken.empty());
    UpdateManifest local;
    VPR_REQUIRE(ParseUpdateManifest(text, local, error, true) && local == manifest);

    const ReleaseNotes notes = SelectReleaseNotes(manifest, L"en");
    VPR_REQUIRE(notes.summary.empty() == manifest.localizations.empty());
    VPR_REQUIRE(!ReleaseNotesLines(notes, L"-").empty());
    const std::wstring identity = ReleaseIdentityText(manifest);
    VPR_REQUIRE(identity.starts_with(manifest.version) && identity.ends_with(L'\n'));
    const WatermarkDecision decision = JudgeReleaseWatermark(text, manifest.version, L"id", true);
    VPR_REQUIRE((decision.action == WatermarkDecision::Action::write) == !decision.text.empty());
    return 0;
}
