// Hands a file to the program that the user has chosen for its kind.
#include "platform/viewer.h"

#include <windows.h>

#include <shellapi.h>

bool openInViewer(const std::wstring& path) {
    constexpr INT_PTR lastError = 32; // results up to it are errors
    HINSTANCE result =
        ShellExecuteW(nullptr, L"open", path.c_str(), nullptr, nullptr, SW_SHOWNORMAL);
    return reinterpret_cast<INT_PTR>(result) > lastError;
}
