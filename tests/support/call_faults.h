#pragma once

#include "tests/support/import_hook.h"

namespace test_support {

/// What meets one run of a sweep: the call with some number, or it and all behind it.
struct CallFault {
    const char* name;
    FaultKind kind;
    bool fromThenOn;
};
inline constexpr CallFault kCallFaults[] = {
    {"one call fails", FaultKind::fail, false},
    {"one call fails half done", FaultKind::failTorn, false},
    {"all calls from there on fail", FaultKind::failTorn, true},
};

}  // namespace test_support
