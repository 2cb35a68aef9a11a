#include "download/trace_line.h"

#include <cmath>
#include <cstdio>
#include <iterator>

#include "platform/text.h"

namespace launcher_download {
namespace {

constexpr std::size_t kPayloadCharacters = 12;  // enough of a digest to tell the payloads of an update apart

struct PhaseRow {
    Phase phase;
    std::string_view word;
};

constexpr PhaseRow kPhases[] = {
    {Phase::connecting, "connecting"},
    {Phase::receiving, "receiving"},
    {Phase::slow, "slow"},
    {Phase::retrying, "retrying"},
    {Phase::verifying, "verifying"},
    {Phase::cached, "cached"},
    {Phase::complete, "complete"},
    {Phase::failed, "failed"},
    {Phase::cancelled, "cancelled"},
    {Phase::switchingSource, "switching-source"},
    {Phase::comparingSource, "comparing-source"},
};

constexpr bool RowsStandInOrder() {
    for (std::size_t at = 0; at < std::size(kPhases); ++at) {
        if (kPhases[at].phase != static_cast<Phase>(at)) return false;
    }
    return true;
}
static_assert(RowsStandInOrder(), "a phase's number is its row");
static_assert(std::size(kPhases) == static_cast<std::size_t>(Phase::comparingSource) + 1, "every phase has its word");

constexpr std::string_view kComponents[] = {"payload", "launcher", "application", "runtime", "theme", "package"};

constexpr std::size_t kMostWholeDigits = 309;  // of a double

std::string WholeSpeed(double bytesPerSecond) {
    const bool known = std::isfinite(bytesPerSecond) && bytesPerSecond > 0.0;
    char text[kMostWholeDigits + 1];
    std::snprintf(text, sizeof(text), "%.0f", known ? std::trunc(bytesPerSecond) : 0.0);
    return text;
}

/// Writes the members of one flat object, in the order of the calls.
class ObjectWriter {
  public:
    ObjectWriter& Text(std::string_view key, std::string_view value) {
        return Raw(key, '"' + std::string(value) + '"');
    }
    ObjectWriter& Number(std::string_view key, std::uint64_t value) { return Raw(key, std::to_string(value)); }
    ObjectWriter& Raw(std::string_view key, std::string_view value) {
        line_ += line_.empty() ? '{' : ',';
        line_.append("\"").append(key).append("\":").append(value);
        return *this;
    }
    [[nodiscard]] std::string End() const { return line_ + "}\n"; }

  private:
    std::string line_;
};

}  // namespace

std::string_view PhaseWord(Phase phase) {
    const auto number = static_cast<std::size_t>(phase);
    return kPhases[number < std::size(kPhases) ? number : static_cast<std::size_t>(Phase::failed)].word;
}

std::string_view ComponentWord(std::uint32_t component) {
    return kComponents[component < std::size(kComponents) ? component : 0];
}

std::string FormatTraceLine(const Request& request, const Progress& progress, const TraceFacts& facts) {
    const bool verified = progress.phase == Phase::cached || progress.phase == Phase::complete;
    return ObjectWriter()
        .Number("schema", 1)
        .Raw("utc", std::to_string(facts.utcSeconds))
        .Text("component", ComponentWord(request.component))
        .Text("phase", PhaseWord(progress.phase))
        .Text("endpoint", facts.endpoint)
        .Text("payload", platform::EncodeUtf8(request.sha256.substr(0, kPayloadCharacters)))
        .Number("attempt", progress.attempt)
        .Number("bytes", progress.bytes)
        .Number("total", progress.total)
        .Number("networkBytes", progress.networkBytes)
        .Number("elapsedMs", progress.elapsedMs)
        .Number("firstByteMs", facts.firstByteMs)
        .Raw("bytesPerSecond", WholeSpeed(progress.bytesPerSecond))
        .Raw("comparisonPrimarySpeed", std::to_string(progress.comparisonPrimarySpeed))
        .Raw("comparisonBackupSpeed", std::to_string(progress.comparisonBackupSpeed))
        .Number("httpStatus", facts.httpStatus)
        .Number("osError", facts.osError)
        .Raw("sha256Verified", verified ? "true" : "false")
        .Text("reason", facts.reason)
        .End();
}

}  // namespace launcher_download
