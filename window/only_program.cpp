// A named mutex is the mark: the system takes it away with the process, however that ends.
#include "window/only_program.h"

#include <windows.h>

#include <string>

namespace {

enum class Mark { Made, Found, Refused };

// Nobody ever waits for the mutex; that it is there says all.
Mark mark(const wchar_t* name) {
    SECURITY_DESCRIPTOR everybody; // other users' programs must see it, too
    InitializeSecurityDescriptor(&everybody, SECURITY_DESCRIPTOR_REVISION);
    SetSecurityDescriptorDacl(&everybody, TRUE, nullptr, FALSE);
    SECURITY_ATTRIBUTES attributes{sizeof attributes, &everybody, FALSE};
    HANDLE mutex = CreateMutexW(&attributes, FALSE, name);
    const bool mayNotHave = !mutex && GetLastError() == ERROR_ACCESS_DENIED;
    if (mutex && GetLastError() != ERROR_ALREADY_EXISTS) return Mark::Made; // never closed
    if (mutex) {
        CloseHandle(mutex); // or this one would keep the next from starting
        return Mark::Found;
    }
    // Refused because it is there, or because this user may make none of that name.
    HANDLE others = mayNotHave ? OpenMutexW(SYNCHRONIZE, FALSE, name) : nullptr;
    const bool found = others || (mayNotHave && GetLastError() == ERROR_ACCESS_DENIED);
    if (others) CloseHandle(others);
    return found ? Mark::Found : Mark::Refused;
}

void showOther() {
    std::string text = "Lumascan runs already, and only one may drive the instruments.";
    if (!FindWindowW(L"LUMA", nullptr))
        text += " Its window is not on this desktop: it is just starting or ending, or another "
                "user has it.";
    MessageBoxA(nullptr, text.c_str(), "Lumascan", MB_OK | MB_SETFOREGROUND);
    HWND other = FindWindowW(L"LUMA", nullptr);
    if (!other) return;
    if (IsIconic(other)) ShowWindowAsync(other, SW_RESTORE);
    SetForegroundWindow(GetLastActivePopup(other)); // its box, where one is open
}

} // namespace

bool isOnlyProgram() {
    Mark found = mark(L"Global\\Lumascan");
    if (found == Mark::Refused) found = mark(L"Local\\Lumascan");
    if (found == Mark::Found) showOther();
    return found != Mark::Found;
}
