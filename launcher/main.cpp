#include <windows.h>

#include "launcher/run.h"

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
    return launcher_shell::RunLauncher();
}
