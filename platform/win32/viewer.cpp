// Hands a file to the program that the user has chosen for its kind.
#include "platform/viewer.h"

#include <windows.h>

#include <shellapi.h>

constexpr INT_PTR lastError = 32; // results up to it are errors

static INT_PTR open(const wchar_t* file, const wchar_t* arguments) {
    return reinterpret_cast<INT_PTR>(
        ShellExecuteW(nullptr, L"open", file, arguments, nullptr, SW_SHOWNORMAL));
}

bool openInViewer(const std::wstring& path) {
    INT_PTR result = open(path.c_str(), nullptr);
    if (result == SE_ERR_NOASSOC || result == SE_ERR_ASSOCINCOMPLETE)
        result = open(L"notepad.exe", (L"\"" + path + L"\"").c_str());
    return result > lastError;
}

bool showInFolder(const std::wstring& path) {
    return open(L"explorer.exe", (L"/select,\"" + path + L"\"").c_str()) > lastError;
}
