#pragma once

// How a test asks one of its programs for a fault, by the environment:
//   VPR_FAULT_KIND   count | fail | fail-torn | kill | kill-torn; none of them is the same as count
//   VPR_FAULT_AT     number of the mutating call that meets it, from 1

#include <windows.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "tests/support/import_hook.h"
#include "tests/support/report.h"

namespace test_support {

inline FaultKind FaultKindOfEnvironment() {
    struct Row {
        const wchar_t* word;
        FaultKind kind;
    };
    const std::wstring word = EnvironmentText(L"VPR_FAULT_KIND");
    for (const Row& row : {Row{L"", FaultKind::none}, Row{L"count", FaultKind::none}, Row{L"fail", FaultKind::fail},
                           Row{L"fail-torn", FaultKind::failTorn}, Row{L"kill", FaultKind::kill},
                           Row{L"kill-torn", FaultKind::killTorn}}) {
        if (word == row.word) return row.kind;
    }
    std::abort();  // a fault that nobody knows must not pass for a run without one
}

inline std::uint32_t FaultNumberOfEnvironment() {
    return static_cast<std::uint32_t>(std::wcstoul(EnvironmentText(L"VPR_FAULT_AT").c_str(), nullptr, 10));
}

/// What was called, as a JSON list of pairs: function, path.
inline std::string RenderCalls(const MutationFaults& faults) {
    std::string text = "[";
    for (const RecordedCall& call : faults.Calls()) {
        if (text.size() > 1) text += ", ";
        text += "[" + JsonQuote(std::wstring(call.function.begin(), call.function.end())) + ", " +
                JsonQuote(call.path) + "]";
    }
    return text + "]";
}

}  // namespace test_support
