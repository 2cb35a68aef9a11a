#include "update/workflow/payload_fetch.h"

namespace launcher_update {

std::uint32_t ClassifyPayload(std::wstring_view url) {
    struct Word {
        std::wstring_view word;
        std::uint32_t component;
    };
    constexpr Word kWords[] = {{L".vprtheme", 4}, {L"Launcher", 1}, {L"Runtime", 3}, {L".vprpack", 5}};
    for (const Word& row : kWords) {
        if (url.find(row.word) != std::wstring_view::npos) return row.component;
    }
    return 2;
}

}  // namespace launcher_update
