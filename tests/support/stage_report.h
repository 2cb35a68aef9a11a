#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include "platform/text.h"
#include "update/settings.h"

namespace test_support {

/// One call of `Settings::onStage`.
struct StageReport {
    launcher_update::Stage stage;
    std::wstring detail;
    std::uint64_t completed;
    std::uint64_t total;

    friend bool operator==(const StageReport&, const StageReport&) = default;
};

inline std::ostream& operator<<(std::ostream& stream, const StageReport& report) {
    return stream << "{" << static_cast<unsigned>(report.stage) << ", " << platform::EncodeUtf8(report.detail) << ", "
                  << report.completed << "/" << report.total << "}";
}

}  // namespace test_support
