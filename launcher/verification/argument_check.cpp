#include "launcher/verification/argument_check.h"

#include <windows.h>

#include "update/files/attributes.h"

namespace launcher_shell {

bool AcceptValue(const Argument& argument, const std::wstring& value) {
    if (!IsPath(argument, value)) return AcceptText(argument, value);
    if (!BeginsWithDrive(value)) return false;  // Windows is not asked about anything else
    const std::wstring drive = value.substr(0, 2) + L'\\';
    return AcceptPath(argument.kind, value, {GetDriveTypeW(drive.c_str()), launcher_update::LookAt(value)});
}

bool AcceptValues(const Command& command, std::span<const std::wstring> values) {
    for (std::size_t index = 0; index < values.size(); ++index) {
        if (!AcceptValue(ArgumentAt(command, index), values[index])) return false;
    }
    return true;
}

}  // namespace launcher_shell
